#include "faults/Workload.h"

#include <gtest/gtest.h>

#include <cstring>
#include <new>

#include "QRTCore/QRTThrowable.h"
#include "faults/FaultPlan.h"

bool Trial::attempt(const std::function<bool()>& call) {
  std::string what;
  m_failure = Failure::eNone;
  try {
    const FaultPlan::Armed armed;
    m_failure = call() ? Failure::eNone : Failure::eNull;
  } catch (const QRTOutOfMemoryError& error) {
    m_failure = Failure::eOutOfMemoryError;
    what = error.what();
  } catch (const QRTThrowable& error) {
    m_failure = Failure::eOtherError;
    what = error.what();
    EXPECT_FALSE(what.empty());
  } catch (const std::bad_alloc&) {
    m_failure = Failure::eNoMemory;
    EXPECT_FALSE(needsReason) << "no memory, where the heap has some";
  }  // anything else ends the test
  if (m_failure == Failure::eNone) {
    return true;
  }
  ++m_failed;
  const std::string reason = manager != nullptr ? manager->getLastStoreError() : "(no store)";
  EXPECT_TRUE(mayFail) << "error \"" << what << "\", reason \"" << reason << '"';
  EXPECT_TRUE(!reason.empty() || (!needsReason && m_failure != Failure::eNull)) << what;
  return false;
}

void useOnce(Trial& trial, QRTVirtualMemoryMgr& manager) {
  for (const unsigned int size : {1U, 100U, 3000U, 20000U}) {
    const std::string bytes(size, 'u');
    QRTVirtualPageItem item;
    trial.attempt([&] {
      std::memcpy(manager.alloc(size, item), bytes.data(), size);
      manager.dismiss(item);
      const void* const address = manager.getAddress(item, 1);
      EXPECT_EQ(std::memcmp(address, bytes.data(), size), 0);
      manager.dismiss(item);
      manager.free(item);
      return true;
    });
  }
}
