#ifndef EXAMPLES_XMLTREE_CHARACTERSET_H
#define EXAMPLES_XMLTREE_CHARACTERSET_H

#include <expat.h>
#include <iconv.h>

namespace example {

/// Reads encodings that the parser does not know by itself, with the system's converter.
///
/// The parser takes encodings in which ASCII stands for itself and the first byte of a character
/// tells how many follow, and characters of up to 16 bits. So all one-byte relatives of ASCII can
/// be read, and multi-byte ones such as EUC-JP, EUC-KR, Big5, GBK and Shift_JIS; what of an
/// encoding does not fit is refused as malformed where it occurs. Encodings with shift states, or
/// that have nothing to do with ASCII, are unknown encodings.
class CharacterSet {
 public:
  /// The handler that parsers are given.
  static int handle(void* unused, const XML_Char* name, XML_Encoding* encoding);

  CharacterSet(const CharacterSet&) = delete;
  CharacterSet& operator=(const CharacterSet&) = delete;

 private:
  explicit CharacterSet(iconv_t converter) : m_converter(converter) {}
  ~CharacterSet() { iconv_close(m_converter); }

  int convert(const char* bytes, int length);
  int entryOf(int first);

  static int onConvert(void* self, const char* bytes);
  static void onRelease(void* self);

  iconv_t m_converter;      // from the encoding to code points
  int m_lengths[256] = {};  // bytes of a character, by its first one; 0 for none
};

}  // namespace example

#endif  // EXAMPLES_XMLTREE_CHARACTERSET_H
