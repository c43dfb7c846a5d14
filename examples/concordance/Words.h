#ifndef EXAMPLES_CONCORDANCE_WORDS_H
#define EXAMPLES_CONCORDANCE_WORDS_H

#include <cstddef>
#include <string>
#include <string_view>

namespace example {

/// Takes the words out of a text one after the other. A word is a run of letters; every character
/// beyond ASCII counts as one, but for the signs of Latin-1 and for typographic punctuation.
class Words {
 public:
  explicit Words(std::string_view text) : m_text(text) {}

  /// Steps to the next word.
  /// @return whether there was one
  bool next();

  /// The word with its ASCII letters in lower case; valid until the next step.
  const std::string& word() const { return m_word; }

  std::size_t begin() const { return m_begin; }  ///< where the word begins in the text
  std::size_t end() const { return m_at; }       ///< where it ends

 private:
  std::size_t letterAt(std::size_t at) const;
  std::size_t otherAt(std::size_t at) const;

  std::string_view m_text;  // not owned
  std::size_t m_begin = 0;  // the word
  std::size_t m_at = 0;     // what is behind it
  std::string m_word;       // the word in lower case
};

/// The word of a user's argument: in lower case, empty when it is not exactly one word.
std::string singleWord(std::string_view argument);

/// A line cut so that the part of it from `begin` to `end` stands in a fixed column, with as much
/// of what is around as fits; every character is taken as one column wide. Control characters are
/// shown as spaces.
std::string keywordInContext(std::string_view line, std::size_t begin, std::size_t end);

}  // namespace example

#endif  // EXAMPLES_CONCORDANCE_WORDS_H
