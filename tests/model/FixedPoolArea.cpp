#include "model/FixedPoolArea.h"

#include <algorithm>
#include <sstream>

#include "QRTAllocatorChecker.h"

namespace model {

namespace {

constexpr std::uint32_t kChunkBytes = 32760;
constexpr std::uint32_t kMostChunks = 80;  // from 64 on a pool without headers has an index
constexpr std::size_t kMostElements = 4000;

}  // namespace

FixedPoolArea::FixedPoolArea(ModelWorld& world)
    : ModelArea(world, world.choices.fork()),
      m_size(1 + choices().size(3000)),
      m_grows(choices().oneIn(2)),
      m_hasHeaders(!choices().oneIn(4)),
      m_pool(m_size, m_grows ? 1 : 0, m_hasHeaders ? 1 : 0),
      m_perChunk(static_cast<std::uint32_t>(info().perChunk)) {
  if (choices().oneIn(4)) {
    m_pool.setDetectMemoryOverWrites(1);
  }
}

FixedPoolArea::~FixedPoolArea() {
  for (void* const chunk : m_reclaimed) {
    ::operator delete(chunk);
  }
}

FixedPoolArea::Info FixedPoolArea::info() {
  Info info;
  int chunkBytes = 0;
  m_pool.info(&chunkBytes, &info.chunks, &info.perChunk, &info.inUse);
  require(chunkBytes == static_cast<int>(kChunkBytes), "a chunk of ", chunkBytes, " bytes");
  return info;
}

void FixedPoolArea::step() {
  const std::uint32_t choice = choices().below(32);
  if (choice < 14) {
    // At times many at once, else a pool of small elements never fills a chunk.
    for (std::uint32_t i = choices().oneIn(8) ? choices().below(4 * m_perChunk) : 1;
         i > 0 && m_blocks.count() < kMostElements; --i) {
      alloc();
    }
  } else if (choice < 24) {
    for (std::uint32_t i = choices().oneIn(8) ? choices().below(3 * std::min(m_perChunk, 300U)) : 1;
         i > 0; --i) {
      free();
    }
  } else if (choice < 26) {
    realloc();
  } else if (choice == 26) {
    grow();
  } else if (choice < 29) {
    reclaim();
  } else if (choice == 29) {
    trim();
  } else {
    mistake();
  }
}

// Fails only without an element that is free: when the pool does not grow, or cannot.
void FixedPoolArea::alloc() {
  const bool isFull = m_blocks.count() == capacity();
  if (isFull && m_chunks >= kMostChunks) {
    return;
  }
  note("alloc", m_blocks.count(), capacity());
  void* element = nullptr;
  const Attempt tried = attempt([&] { element = m_pool.alloc(); });
  if (!tried.well()) {
    require(tried.ended == Ended::kOutOfMemory && isFull, "alloc raised ", tried.text);
    return;
  }
  require((element == nullptr) == (isFull && !m_grows), "an element too few or too many");
  if (element != nullptr) {
    m_chunks += isFull ? 1 : 0;
    m_blocks.add(m_world, element, m_size);
    require(!m_hasHeaders || QRTFixedMemoryPool::allocSize(element) == m_size, "another size");
  }
}

void FixedPoolArea::free() {
  m_pool.free(nullptr);
  if (m_blocks.count() != 0) {
    const auto block = m_blocks.any(choices());
    void* const element = block->first;
    note("free", m_blocks.count());
    m_blocks.remove(m_world, block);
    require(attempt([&] { m_pool.free(element); }).well(), "free raised an error");
  }
}

void FixedPoolArea::realloc() {
  if (m_blocks.count() == 0) {
    return;
  }
  const auto block = m_blocks.any(choices());
  const std::uint32_t size = choices().below(m_size + 8);
  note("realloc", size, m_size);
  char* const element = block->first;
  if (size == 0) {
    m_blocks.remove(m_world, block);
  }
  void* const moved = m_pool.realloc(element, size);
  const std::uint32_t room = (m_size + 7) / 8 * 8;
  require(moved == (size == 0 || size > room ? nullptr : element), "an element moved");
}

void FixedPoolArea::grow() {
  if (m_chunks >= kMostChunks) {
    return;
  }
  void* const chunk = m_reclaimed.empty() ? nullptr : m_reclaimed.back();
  note("grow", chunk != nullptr ? 1 : 0);
  const Attempt tried = attempt([&] { m_pool.grow(chunk); });
  require(tried.well() || (tried.ended == Ended::kOutOfMemory && chunk == nullptr), "grow raised ",
          tried.text);
  m_chunks += tried.well() ? 1 : 0;
  if (chunk != nullptr) {
    m_reclaimed.pop_back();
  }
}

void FixedPoolArea::reclaim() {
  const auto keep = static_cast<int>(choices().below(3));
  const int whole = m_hasHeaders ? static_cast<int>(m_chunks) - info().inUse : 0;
  note("reclaim", static_cast<std::uint64_t>(keep), static_cast<std::uint64_t>(whole));
  void* const chunk = m_pool.reclaim(keep);
  require((chunk != nullptr) == (whole > keep), "a chunk too few or too many");
  if (chunk != nullptr) {
    require(!m_blocks.anyIn(chunk, kChunkBytes), "a chunk in use was given up");
    m_reclaimed.push_back(chunk);
    --m_chunks;
  }
}

void FixedPoolArea::trim() {
  const auto most = static_cast<int>(choices().below(3));
  const int whole = m_hasHeaders ? static_cast<int>(m_chunks) - info().inUse : 0;
  note("trim", static_cast<std::uint64_t>(most), static_cast<std::uint64_t>(whole));
  const auto chunks = static_cast<std::uint32_t>(most == 0 ? whole : std::min(most, whole));
  const unsigned released = m_pool.trim(most);
  require(released == chunks * kChunkBytes, "released ", released, " bytes");
  m_chunks -= chunks;
}

// What has a header is known to be free, and to be of another size.
void FixedPoolArea::mistake() {
  if (!m_hasHeaders || m_blocks.count() == 0) {
    return;
  }
  const bool twice = choices().oneIn(2);
  note("mistake", twice ? 1 : 0);
  void* element = m_blocks.any(choices())->first;
  if (twice) {
    m_blocks.remove(m_world, m_blocks.all().find(static_cast<char*>(element)));
    m_pool.free(element);
    require(attempt([&] { m_pool.free(element); }, May::kRaise).ended == Ended::kAssert,
            "an element was freed twice");
  } else {
    QRTFixedMemoryPool other(m_size + 8, 0, 1);
    require(attempt([&] { other.free(element); }, May::kRaise).ended == Ended::kAssert,
            "another pool took an element");
  }
}

void FixedPoolArea::verify() {
  note("verify", m_blocks.count());
  const Info now = info();
  require(now.chunks == static_cast<int>(m_chunks) && now.perChunk == static_cast<int>(m_perChunk),
          "the pool has ", now.chunks, " chunks, not ", m_chunks);
  const auto least = static_cast<int>((m_blocks.count() + m_perChunk - 1) / m_perChunk);
  require(!m_hasHeaders || (now.inUse >= least && now.inUse <= static_cast<int>(m_blocks.count())),
          "chunks in use: ", now.inUse);
  m_pool.checkForMemoryOverWrite();
  std::ostringstream os;
  require(QRTAllocatorChecker::check(m_pool, os) == 0, os.str());
  m_blocks.verify(m_world);
}

void FixedPoolArea::clear() {
  while (m_blocks.count() != 0) {
    free();
  }
  if (m_hasHeaders) {
    require(m_pool.trim(0) == m_chunks * kChunkBytes, "a free pool has chunks in use");
    m_chunks = 0;
  }
}

}  // namespace model
