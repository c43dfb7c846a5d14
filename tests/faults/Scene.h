#ifndef TESTS_FAULTS_SCENE_H
#define TESTS_FAULTS_SCENE_H

#include <gtest/gtest.h>

#include <cstdlib>
#include <memory>
#include <vector>

#include "faults/FaultPlan.h"
#include "faults/TestEngine.h"
#include "faults/Workload.h"

/// The ways to fail that a program's files offer.
extern const std::vector<FaultMode> kFaultModes;

/// Whether to go through all there is rather than a spread of it: QRT_FAULTS_ALL=1.
inline bool wantsAll() {
  const char* const all = std::getenv("QRT_FAULTS_ALL");
  return all != nullptr && *all != '\0' && *all != '0';
}

/// One workload over a manager of its own, with calls that fail from one on.
class Scene {
 public:
  /// @param mode  null when nothing fails
  Scene(const WorkloadKind& kind, const FaultMode* mode, std::size_t nth = 0) {
    TestEngine::get().firstGeneration = kind.firstGeneration;
    TestEngine::get().encrypted = kind.isEncrypted;
    FaultPlan::get().begin(mode, nth);
    trial.mayFail = mode != nullptr && !mode->isMadeUpFor;
    trial.needsReason = mode == nullptr || mode->site != Site::eHeap;
    m_hadFaults = trial.mayFail;
    m_wasShortOfMemory =
        mode != nullptr && (mode->site == Site::eHeap || mode->site == Site::ePageMemory);
    trial.attempt([&] {
      manager = std::make_unique<QRTVirtualMemoryMgr>(kind.budgetFrames * 4096);
      return true;
    });
    if (manager != nullptr) {
      trial.manager = manager.get();
      workload = kind.make(*manager);
    }
  }
  ~Scene() { endFaults(); }
  Scene(const Scene&) = delete;
  Scene& operator=(const Scene&) = delete;

  /// From here on calls may fail, without the plan.
  void allowFaults() { m_hadFaults = trial.mayFail = true; }

  /// From here on nothing may fail.
  void endFaults() {
    FaultPlan::get().end();
    trial.mayFail = false;
    trial.needsReason = true;
  }

  void expectConsistent() const {
    EXPECT_EQ(TestEngine::get().engine->Check(m_wasShortOfMemory), "");
    EXPECT_EQ(TestEngine::get().pinned(), 0U);
  }

  /// Everything that was stored is there, everything works, and nothing is left in the end.
  void expectWhole() {
    expectConsistent();
    workload->check(trial);
    useOnce(trial, *manager);
    workload->change(trial);
    workload->check(trial);
    expectNothingIsLeft();
  }

  void expectNothingIsLeft() {
    workload->end(trial);
    EXPECT_TRUE(TestEngine::get().objects() == 0 || (m_hadFaults && workload->leavesUnreadable()))
        << TestEngine::get().objects();
    expectConsistent();
  }

  Trial trial;
  std::unique_ptr<QRTVirtualMemoryMgr> manager;  // null when it could not be made
  std::unique_ptr<Workload> workload;            // null without a manager

 private:
  bool m_hadFaults;
  bool m_wasShortOfMemory;
};

/// A test of each kind of workload that the build can run.
class WorkloadTest : public testing::TestWithParam<WorkloadKind> {
  void SetUp() override {
    if (GetParam().isEncrypted && !tcmalloc::VirtualMemoryPool::CanEncrypt()) {
      GTEST_SKIP() << "this build has no cipher";
    }
  }
};

inline std::string nameOf(const testing::TestParamInfo<WorkloadKind>& info) {
  return info.param.name;
}

#endif  // TESTS_FAULTS_SCENE_H
