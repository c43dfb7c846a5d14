#include <array>
#include <iostream>
#include <iterator>
#include <string>
#include <utility>

#include "faults/Scene.h"

// Pages of both files are damaged one at a time, in every way that disks do it. What was stored is
// read as it was or not at all; whole again, it can be read.

namespace {

class DamagedPages : public WorkloadTest {};

INSTANTIATE_TEST_SUITE_P(Workloads, DamagedPages, testing::ValuesIn(kWorkloads), nameOf);

enum class Damage { eFlip, eTear, eSwap, eRollBack };
constexpr Damage kDamages[] = {Damage::eFlip, Damage::eTear, Damage::eSwap, Damage::eRollBack};

/// One file in pieces that are damaged as a whole: pages, or leaves of the page table.
class Pieces {
 public:
  Pieces(ScriptedPagingFile& file, std::size_t bytes) : m_file(file), m_bytes(bytes) {}

  std::size_t count() const { return static_cast<std::size_t>(m_file.Size() / m_bytes); }
  void keepAsOld() {
    m_old.clear();
    for (std::size_t i = 0; i < count(); ++i) {
      m_old.push_back(get(i));
    }
  }

  /// Damages a piece. @return whether it was ever written and differs from what it was
  bool damage(std::size_t piece, Damage how) {
    m_whole = {get(piece), get((piece + 1) % count())};
    std::string bytes = m_whole[0];
    const std::string old = piece < m_old.size() ? m_old[piece] : std::string(m_bytes, '\0');
    switch (how) {
      case Damage::eFlip:
        flip(bytes[(piece * 997 + 5) % m_bytes], piece % 8);
        break;
      case Damage::eTear:
        bytes.replace(m_bytes / 2, m_bytes, old, m_bytes / 2);
        break;
      case Damage::eSwap:
        bytes = m_whole[1];
        put((piece + 1) % count(), m_whole[0]);
        break;
      case Damage::eRollBack:
        bytes = old;
        break;
    }
    put(piece, bytes);
    return bytes != m_whole[0] && m_whole[0].find_first_not_of('\0') != std::string::npos;
  }
  void mend(std::size_t piece) {
    put((piece + 1) % count(), m_whole[1]);
    put(piece, m_whole[0]);
  }

 private:
  static void flip(char& byte, std::size_t bit) { byte = static_cast<char>(byte ^ 1 << bit); }
  std::string get(std::size_t piece) {
    std::string bytes(m_bytes, '\0');
    const tcmalloc::IoSlice slice{bytes.data(), m_bytes, 0};
    EXPECT_EQ(m_file.ReadSome(piece * m_bytes, &slice, 1), static_cast<std::int64_t>(m_bytes));
    return bytes;
  }
  void put(std::size_t piece, std::string bytes) {
    const tcmalloc::IoSlice slice{bytes.data(), m_bytes, 0};
    EXPECT_EQ(m_file.WriteSome(piece * m_bytes, &slice, 1), static_cast<std::int64_t>(m_bytes));
  }

  ScriptedPagingFile& m_file;
  std::size_t m_bytes;
  std::vector<std::string> m_old;      // the pieces before the last change
  std::array<std::string, 2> m_whole;  // what was damaged, and the piece behind it
};

constexpr std::size_t kLeafBytes = tcmalloc::PageTable::kImageBytes;

/// A workload that was run and changed once, with everything out.
class Stored : public Scene {
 public:
  explicit Stored(const WorkloadKind& kind)
      : Scene(kind, nullptr),
        files{Pieces(*TestEngine::get().file, ScriptedPagingFile::kBlock),
              Pieces(*TestEngine::get().tableFile, kLeafBytes)} {
    workload->run(trial);
    pushOut();
    for (Pieces& pieces : files) {
      pieces.keepAsOld();
    }
    workload->change(trial);
    pushOut();
  }

  void pushOut() {
    tcmalloc::Engine& engine = *TestEngine::get().engine;
    std::uint64_t offset = 0;
    ASSERT_NE(
        engine.Allocate(static_cast<std::uint32_t>(TestEngine::get().stats().budgetBytes), offset),
        nullptr);
    engine.Deallocate(offset);
  }

  std::array<Pieces, 2> files;
};

TEST_P(DamagedPages, NothingDamagedIsEverHandedOut) {
  Stored scene(GetParam());
  std::size_t damages = 0;
  std::size_t told = 0;
  for (Pieces& pieces : scene.files) {
    for (std::size_t piece = 0; piece < pieces.count(); ++piece) {
      for (const Damage how : kDamages) {
        if (!wantsAll() && piece % std::size(kDamages) != static_cast<std::size_t>(how)) {
          continue;  // ordinary runs damage each piece in one way
        }
        SCOPED_TRACE(testing::Message() << "file " << (&pieces == &scene.files[1]) << ", piece "
                                        << piece << ", damage " << static_cast<int>(how));
        if (!pieces.damage(piece, how)) {
          pieces.mend(piece);
          continue;
        }
        const std::size_t before = scene.trial.failed();
        scene.allowFaults();
        scene.workload->check(scene.trial);
        scene.trial.mayFail = false;
        ++damages;
        told += scene.trial.failed() != before ? 1 : 0;
        scene.expectConsistent();
        useOnce(scene.trial, *scene.manager);
        pieces.mend(piece);
        scene.workload->check(scene.trial);
        scene.pushOut();
        if (HasFailure()) {
          return;
        }
      }
    }
  }
  std::cout << damages << " damages, " << told << " of them met\n";
  EXPECT_GT(told, damages / 4) << "what is damaged is stored, most of it";
  scene.expectWhole();
}

// What is given up while it cannot be read is given back when it can.
TEST_P(DamagedPages, WhatIsFreedWhileDamagedIsGivenBackLater) {
  const std::size_t pages = Stored(GetParam()).files[0].count();
  const std::size_t leaves = Stored(GetParam()).files[1].count();
  const std::size_t step = wantsAll() ? 1 : std::max<std::size_t>((pages + leaves) / 20, 1);
  for (std::size_t at = 0; at < pages + leaves; at += step) {
    SCOPED_TRACE(testing::Message() << "piece " << at << " of " << pages << " and " << leaves);
    Stored scene(GetParam());
    Pieces& pieces = scene.files[at < pages ? 0 : 1];
    const std::size_t piece = at < pages ? at : at - pages;
    pieces.damage(piece, Damage::eFlip);
    scene.allowFaults();
    scene.workload->change(scene.trial);
    scene.workload->end(scene.trial);
    scene.trial.mayFail = false;
    EXPECT_TRUE(scene.workload->leavesUnreadable() || TestEngine::get().objects() == 0);
    scene.expectConsistent();
    pieces.mend(piece);
    for (int i = 0; i < 4; ++i) {
      useOnce(scene.trial, *scene.manager);
    }
    scene.expectNothingIsLeft();
    if (HasFailure()) {
      return;
    }
  }
}

}  // namespace
