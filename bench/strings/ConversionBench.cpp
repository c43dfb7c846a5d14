// UTF-8 to UTF-16 and back, of long and of short text, beside ICU, the C library's iconv and the
// UTF library without our fast path. Each of them replaces or refuses what is ill-formed.

#include <benchmark/benchmark.h>
#include <iconv.h>
#include <unicode/ustring.h>
#include <utf8.h>

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "QRTCore/QRTUtUtf8.h"
#include "suite/strings/Corpus.h"

namespace {

/// Text of a kind: 0 the corpus, nearly all ASCII; 1 its letters as two bytes each, as in Russian;
/// 2 its letters as three bytes each, as in Chinese.
std::string Sample(std::int64_t kind) {
  static const Corpus corpus(0);
  const std::string_view text = corpus.text().substr(0, 1 << 20);
  std::string sample;
  for (const char letter : text) {
    const auto offset = static_cast<unsigned char>(letter | 0x20) - static_cast<unsigned>('a');
    if (kind == 0 || offset >= 26) {
      sample += letter;
    } else {
      utf8::append(static_cast<char32_t>((kind == 1 ? 0x430U : 0x4E00U) + offset), sample);
    }
  }
  return sample.substr(0, QRTUtUtf8::findInvalid(sample));
}

std::u16string Units(const std::string& utf8) {
  std::u16string units(utf8.size(), u'\0');
  std::string_view rest(utf8);
  units.resize(QRTUtUtf8::toUtf16(rest, units.data(), units.size()));
  return units;
}

struct Own {
  static std::size_t ToUtf16(std::string_view utf8, std::u16string& out) {
    return QRTUtUtf8::toUtf16(utf8, out.data(), out.size());
  }
  static std::size_t ToUtf8(std::u16string_view units, std::string& out) {
    const std::uint64_t length = QRTUtUtf8::utf8Length(units);
    QRTUtUtf8::toUtf8(units, out.data());
    return length;
  }
};

struct Icu {
  static std::size_t ToUtf16(std::string_view utf8, std::u16string& out) {
    std::int32_t length = 0;
    UErrorCode error = U_ZERO_ERROR;
    u_strFromUTF8WithSub(out.data(), static_cast<std::int32_t>(out.size()), &length, utf8.data(),
                         static_cast<std::int32_t>(utf8.size()), 0xFFFD, nullptr, &error);
    return static_cast<std::size_t>(length);
  }
  static std::size_t ToUtf8(std::u16string_view units, std::string& out) {
    std::int32_t length = 0;
    UErrorCode error = U_ZERO_ERROR;
    u_strToUTF8WithSub(out.data(), static_cast<std::int32_t>(out.size()), &length, units.data(),
                       static_cast<std::int32_t>(units.size()), 0xFFFD, nullptr, &error);
    return static_cast<std::size_t>(length);
  }
};

struct Iconv {
  static std::size_t Run(const char* to, const char* from, const void* in, std::size_t inBytes,
                         void* out, std::size_t outBytes) {
    const iconv_t converter = iconv_open(to, from);
    auto* inAt = const_cast<char*>(static_cast<const char*>(in));
    auto* outAt = static_cast<char*>(out);
    std::size_t left = outBytes;
    iconv(converter, &inAt, &inBytes, &outAt, &left);
    iconv_close(converter);
    return outBytes - left;
  }
  static std::size_t ToUtf16(std::string_view utf8, std::u16string& out) {
    return Run("UTF-16LE", "UTF-8", utf8.data(), utf8.size(), out.data(), out.size() * 2);
  }
  static std::size_t ToUtf8(std::u16string_view units, std::string& out) {
    return Run("UTF-8", "UTF-16LE", units.data(), units.size() * 2, out.data(), out.size());
  }
};

struct Utf8Cpp {
  static std::size_t ToUtf16(std::string_view utf8, std::u16string& out) {
    return static_cast<std::size_t>(utf8::utf8to16(utf8.begin(), utf8.end(), out.data()) -
                                    out.data());
  }
  static std::size_t ToUtf8(std::u16string_view units, std::string& out) {
    return static_cast<std::size_t>(utf8::utf16to8(units.begin(), units.end(), out.data()) -
                                    out.data());
  }
};

// Calls f for the whole text, or for pieces of about so many units when `piece` is not 0.
template <class View, class Function>
void InPieces(View text, std::size_t piece, bool (*begins)(typename View::value_type),
              Function&& f) {
  for (std::size_t from = 0; piece != 0 && text.size() - from > piece + 8;) {
    std::size_t to = from + piece;
    while (!begins(text[to])) {
      ++to;
    }
    f(text.substr(from, to - from));
    from = to;
  }
  if (piece == 0) {
    f(text);
  }
}

/// Arguments: kind of text, bytes of a piece (0 for all at once).
template <class Converter>
void ToUtf16(benchmark::State& state) {
  const std::string utf8 = Sample(state.range(0));
  std::u16string out(utf8.size(), u'\0');
  for (auto _ : state) {
    InPieces<std::string_view>(
        utf8, static_cast<std::size_t>(state.range(1)),
        [](char byte) { return (static_cast<unsigned char>(byte) & 0xC0U) != 0x80U; },
        [&](std::string_view piece) {
          benchmark::DoNotOptimize(Converter::ToUtf16(piece, out));
          benchmark::ClobberMemory();
        });
  }
  state.SetBytesProcessed(state.iterations() * static_cast<std::int64_t>(utf8.size()));
}

template <class Converter>
void ToUtf8(benchmark::State& state) {
  const std::string utf8 = Sample(state.range(0));
  const std::u16string units = Units(utf8);
  std::string out(units.size() * 3, '\0');
  for (auto _ : state) {
    InPieces<std::u16string_view>(
        units, static_cast<std::size_t>(state.range(1)),
        [](char16_t unit) { return (unit & 0xFC00U) != 0xDC00U; },
        [&](std::u16string_view piece) {
          benchmark::DoNotOptimize(Converter::ToUtf8(piece, out));
          benchmark::ClobberMemory();
        });
  }
  state.SetBytesProcessed(state.iterations() * static_cast<std::int64_t>(utf8.size()));
}

void Texts(benchmark::internal::Benchmark* benchmark) {
  benchmark->ArgsProduct({{0, 1, 2}, {0, 30, 1000}});
}

BENCHMARK(ToUtf16<Own>)->Apply(Texts);
BENCHMARK(ToUtf16<Icu>)->Apply(Texts);
BENCHMARK(ToUtf16<Iconv>)->Apply(Texts);
BENCHMARK(ToUtf16<Utf8Cpp>)->Apply(Texts);
BENCHMARK(ToUtf8<Own>)->Apply(Texts);
BENCHMARK(ToUtf8<Icu>)->Apply(Texts);
BENCHMARK(ToUtf8<Iconv>)->Apply(Texts);
BENCHMARK(ToUtf8<Utf8Cpp>)->Apply(Texts);

}  // namespace
