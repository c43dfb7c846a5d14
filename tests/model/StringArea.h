#ifndef TESTS_MODEL_STRINGAREA_H
#define TESTS_MODEL_STRINGAREA_H

#include <string>
#include <vector>

#include "QRTVirtualContainer.h"
#include "QRTVirtualI18NString.h"
#include "QRTVirtualUTF8String.h"
#include "model/ModelArea.h"

namespace model {

/// Stored strings of both kinds, from text of every language and from bytes that are no text.
class StringArea final : public ModelArea {
 public:
  explicit StringArea(ModelWorld& world);

  const char* name() const override { return "string"; }
  void step() override;
  void verify() override;
  void clear() override;
  std::uint64_t objects() const override;
  bool owns(std::uint64_t offset) const override;

 private:
  struct Utf8 {
    QRTVirtualUTF8String handle;
    std::string text;  // what is stored
  };
  struct Utf16 {
    QRTVirtualI18NString handle;
    std::u16string text;
  };

  std::string anyBytes();
  std::u16string anyUnits();
  void setUtf8(Utf8& string);
  void setUtf16(Utf16& string);
  void getUtf8(Utf8& string);
  void getUtf16(Utf16& string);
  void compareUtf8(Utf8& string);
  void compareUtf16(Utf16& string);
  void free(QRTVirtualPageItem& handle);
  template <class Call>
  void expectEqual(bool equal, Call call);
  template <class String, class Text>
  void noteStored(String& string, const QRTVirtualPageItem& before, const Text& text,
                  std::size_t bytes, const Attempt& tried);

  QRTVirtualContainer m_container;
  std::vector<Utf8> m_utf8;
  std::vector<Utf16> m_utf16;
};

}  // namespace model

#endif  // TESTS_MODEL_STRINGAREA_H
