#include "QRTVirtualHashSeed.h"

#include "model/Choices.h"

// Stored maps draw a random seed, with which no run would be like another. This takes its place at
// link time: every map has the same one.

QRTVirtualHashSeed::QRTVirtualHashSeed() noexcept : m_seed(0x5EED) {}

unsigned long long QRTVirtualHashSeed::ofNumber(unsigned long long number) const noexcept {
  return model::Choices::mix(number, m_seed);
}

unsigned long long QRTVirtualHashSeed::ofBytes(const void* bytes, std::size_t size) const noexcept {
  unsigned long long hash = m_seed + size;
  for (const char* at = static_cast<const char*>(bytes); size > 0; --size, ++at) {
    hash = model::Choices::mix(hash, static_cast<unsigned char>(*at));
  }
  return hash;
}
