#include <gmock/gmock.h>

#include "QRTCore/QRTThrowable.h"
#include "QRTVirtualMemoryMgr.h"
#include "support/ErrorMatchers.h"

// A build without libcrypto.

namespace {

TEST(StoreWithoutEncryptionTest, SaysSoAndGoesOnAsBefore) {
  const auto error =
      expectRaised<QRTIllegalStateError>([] { QRTVirtualMemoryMgr::setPagingFileEncryption(1); });
  EXPECT_THAT(textOf(error), testing::HasSubstr("built without libcrypto"));
  EXPECT_EQ(QRTVirtualMemoryMgr::getPagingFileEncryption(), 0);
  QRTVirtualMemoryMgr::setPagingFileEncryption(0);
  QRTVirtualMemoryMgr manager(1U << 20U);
  QRTVirtualPageItem item;
  EXPECT_NE(manager.alloc(10, item), nullptr);
  manager.dismiss(item);
}

}  // namespace
