// AES-256-XTS by OpenSSL's libcrypto.
//
// The key is in secret memory, and its expanded form is anywhere else only for the length of one
// transfer: libcrypto wipes it when the context is reset. The tweak of a unit, 16 bytes, which
// makes equal content at different places look different:
//
//     bytes 0..7     the unit's offset in the file, little-endian
//     bytes 8..15    the content hash of its slice, which is kept in memory and not in the file;
//                    so a page that is written again with other content looks different all over
//
// Each cipher has a context of its own in libcrypto: which providers and properties the host or the
// system's configuration choose for others decides nothing here. (libcrypto reads that file all the
// same, once in a process, when the first cipher is set up.)

#include <openssl/crypto.h>
#include <openssl/err.h>
#include <openssl/evp.h>
#include <openssl/rand.h>

#include <algorithm>
#include <array>

#include "libtcmalloc_virtualmm/EngineAssert.h"
#include "libtcmalloc_virtualmm/PageCipher.h"
#include "libtcmalloc_virtualmm/SecretMemory.h"

namespace tcmalloc {

namespace {

constexpr std::size_t kKeyBytes = 64;   // two keys of 256 bits, as XTS takes them
constexpr unsigned kKeyStrength = 256;  // bits of security that the random source must have
constexpr std::size_t kTweakBytes = 16;
constexpr const char* kCipher = "AES-256-XTS";

/// Keeps errors of libcrypto that are met meanwhile from the host, which may ask libcrypto for its
/// own: ours are told by results.
class ErrorMark {
 public:
  ErrorMark() { ERR_set_mark(); }
  ~ErrorMark() { ERR_pop_to_mark(); }
  ErrorMark(const ErrorMark&) = delete;
  ErrorMark& operator=(const ErrorMark&) = delete;
};

/// libcrypto's first call in the process, which is of no effect later. It is not to clean up when
/// the process ends: a store that is a global object may be used and ended after that. (Where the
/// host was first it may do so; what is out cannot be read then.)
/// @return false when it had no memory, then and for ever, or has cleaned up
bool BeginLibcrypto() {
  return OPENSSL_init_crypto(OPENSSL_INIT_NO_ATEXIT, nullptr) == 1;
}

std::array<unsigned char, kTweakBytes> TweakOf(std::uint64_t offset, std::uint64_t contentHash) {
  std::array<unsigned char, kTweakBytes> tweak;
  for (std::size_t i = 0; i < 8; ++i) {
    tweak[i] = static_cast<unsigned char>(offset >> 8 * i);
    tweak[8 + i] = static_cast<unsigned char>(contentHash >> 8 * i);
  }
  return tweak;
}

class OpenSslPageCipher final : public PageCipher {
 public:
  explicit OpenSslPageCipher(std::size_t unit) : m_unit(unit) {}

  ~OpenSslPageCipher() override {
    const ErrorMark mark;
    EVP_CIPHER_CTX_free(m_context);
    EVP_CIPHER_free(m_cipher);
    OSSL_LIB_CTX_free(m_library);
    if (m_key != nullptr) {
      UnmapSecretMemory(m_key, kKeyBytes);
    }
  }

  OpenSslPageCipher(const OpenSslPageCipher&) = delete;
  OpenSslPageCipher& operator=(const OpenSslPageCipher&) = delete;

  // From the library context's own generator, which the system seeds (getrandom and its like). The
  // simpler RAND_priv_bytes_ex would take the host's instead if that has put one in its place.
  bool DrawKey() noexcept override {
    const ErrorMark mark;
    EVP_RAND_CTX* const random = Prepare() ? RAND_get0_private(m_library) : nullptr;
    return random != nullptr &&
           EVP_RAND_generate(random, Key(), kKeyBytes, kKeyStrength, 0, nullptr, 0) == 1;
  }

  bool Encrypt(std::uint64_t offset, const IoSlice* slices, std::size_t count,
               char* to) noexcept override {
    return Run(kEncrypt, offset, slices, count, [&](const IoSlice&, std::size_t) {
      char* const at = to;
      to += m_unit;
      return at;
    });
  }

  bool Decrypt(std::uint64_t offset, const IoSlice* slices, std::size_t count) noexcept override {
    return Run(kDecrypt, offset, slices, count,
               [](const IoSlice& slice, std::size_t done) { return slice.data + done; });
  }

 private:
  enum Direction { kDecrypt = 0, kEncrypt = 1 };  // as libcrypto counts them

  unsigned char* Key() const { return reinterpret_cast<unsigned char*>(m_key); }

  /// Makes what is missing, which is kept for the next try when the rest cannot be had.
  bool Prepare() noexcept {
    if (!BeginLibcrypto()) {
      return false;
    }
    m_library = m_library != nullptr ? m_library : OSSL_LIB_CTX_new();
    if (m_library != nullptr && m_cipher == nullptr) {
      m_cipher = EVP_CIPHER_fetch(m_library, kCipher, nullptr);
    }
    m_context = m_context != nullptr ? m_context : EVP_CIPHER_CTX_new();
    m_key = m_key != nullptr ? m_key : MapSecretMemory(kKeyBytes);
    return m_cipher != nullptr && m_context != nullptr && m_key != nullptr;
  }

  /// Takes the slices unit by unit:
  ///  1. Give the context the key, which it expands.
  ///  2. For each unit set the tweak and have it encrypted or decrypted to where `place` says.
  ///  3. Wipe the expanded key, also after a failure.
  template <typename Place>
  bool Run(Direction direction, std::uint64_t offset, const IoSlice* slices, std::size_t count,
           Place place) noexcept {
    const ErrorMark mark;
    // Step 1.
    bool good = EVP_CipherInit_ex2(m_context, m_cipher, Key(), nullptr, direction, nullptr) == 1;
    // Step 2.
    const int unit = static_cast<int>(m_unit);
    for (const IoSlice* slice = slices; good && slice != slices + count; ++slice) {
      LIBTCMALLOC_ASSERT(slice->size % m_unit == 0);
      for (std::size_t done = 0; good && done < slice->size; done += m_unit, offset += m_unit) {
        const auto tweak = TweakOf(offset, slice->contentHash);
        const auto* const from = reinterpret_cast<const unsigned char*>(slice->data + done);
        auto* const to = reinterpret_cast<unsigned char*>(place(*slice, done));
        int bytes = 0;
        good = EVP_CipherInit_ex2(m_context, nullptr, nullptr, tweak.data(), direction, nullptr) ==
                   1 &&
               EVP_CipherUpdate(m_context, to, &bytes, from, unit) == 1 && bytes == unit;
      }
    }
    // Step 3.
    EVP_CIPHER_CTX_reset(m_context);
    return good;
  }

  std::size_t m_unit;                   // bytes that have a tweak of their own
  OSSL_LIB_CTX* m_library = nullptr;    // what of libcrypto is this cipher's alone
  EVP_CIPHER* m_cipher = nullptr;       // the algorithm
  EVP_CIPHER_CTX* m_context = nullptr;  // holds the expanded key during a transfer
  char* m_key = nullptr;                // the key, in secret memory
};

}  // namespace

// Asked before a store is made that encrypts, so that libcrypto begins while there is memory.
bool CanEncrypt() noexcept {
  const ErrorMark mark;
  return BeginLibcrypto();
}

std::unique_ptr<PageCipher> MakePageCipher(std::size_t unit) {
  return std::make_unique<OpenSslPageCipher>(unit);
}

}  // namespace tcmalloc
