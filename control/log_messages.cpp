#include "control/log_messages.h"

#include <algorithm>
#include <array>
#include <utility>

namespace vorlatch::control {
namespace {

using Fields = std::vector<std::string_view>;

constexpr std::string_view kTextField = "%s";

std::vector<LogWord> wordsOf(const LogMessage& message) {
  std::vector<LogWord> words;
  for (const LogWord& word : logWords()) {
    if (std::string_view(word.code) == message.code) words.push_back(word);
  }
  return words;
}

// Returns the field with which a form begins.
std::string_view fieldAt(std::string_view form) {
  for (const std::string_view field : {kTextField, std::string_view("%d")}) {
    if (form.starts_with(field)) return field;
  }
  return "%.1f";
}

std::size_t lengthOfNumber(std::string_view text, bool is_integer) {
  const std::size_t sign = text.starts_with('-') ? 1 : 0;
  const std::size_t length = std::min(
      text.find_first_not_of(is_integer ? "0123456789" : "0123456789.", sign), text.size());
  return length > sign ? length : 0;
}

// Finds the texts in place of a form's fields.
class Matcher {
 public:
  explicit Matcher(const LogMessage& message) : words_(wordsOf(message)) {}

  // Returns true if the whole text has the form.
  bool match(std::string_view form, std::string_view text) {
    const std::string_view constant = form.substr(0, form.find('%'));
    if (!text.starts_with(constant)) return false;
    form.remove_prefix(constant.size());
    text.remove_prefix(constant.size());
    if (form.empty()) return text.empty();
    const std::string_view field = fieldAt(form);
    form.remove_prefix(field.size());
    if (field != kTextField) {
      const std::size_t length = lengthOfNumber(text, field == "%d");
      return length > 0 && take(length, form, text);
    }
    if (!words_.empty()) {
      return std::any_of(words_.begin(), words_.end(), [&](const LogWord& word) {
        return text.starts_with(word.text) && take(std::string_view(word.text).size(), form, text);
      });
    }
    for (std::size_t length = 0; length <= text.size(); ++length) {
      if (take(length, form, text)) return true;
    }
    return false;
  }

  Fields takeFields() { return std::move(fields_); }

 private:
  // Takes this many bytes for a field, and matches the rest.
  bool take(std::size_t length, std::string_view form, std::string_view text) {
    fields_.push_back(text.substr(0, length));
    if (match(form, text.substr(length))) return true;
    fields_.pop_back();
    return false;
  }

  const std::vector<LogWord> words_;
  Fields fields_;
};

std::size_t constantBytes(std::string_view form) {
  std::size_t bytes = form.size();
  for (std::size_t at = 0; (at = form.find('%', at)) != form.npos; ++at) {
    bytes -= fieldAt(form.substr(at)).size();
  }
  return bytes;
}

// Returns the English form with the line's fields.
std::string englishText(const RecognisedLine& line) {
  const std::vector<LogWord> words = wordsOf(*line.message);
  std::string text;
  std::string_view form = line.message->english;
  for (const std::string_view field : line.fields) {
    const std::size_t at = form.find('%');
    const auto word = std::find_if(words.begin(), words.end(),
                                   [&](const LogWord& each) { return each.text == field; });
    text += form.substr(0, at);
    text += word != words.end() ? word->english : field;
    form.remove_prefix(at + fieldAt(form.substr(at)).size());
  }
  return text.append(form);
}

}  // namespace

std::optional<std::string_view> RecognisedLine::target() const {
  const std::string_view form = message->form;
  if (form.find(kTextField) == form.npos || !wordsOf(*message).empty()) return std::nullopt;
  std::size_t index = 0;
  for (std::size_t at = form.find('%'); !form.substr(at).starts_with(kTextField);
       at = form.find('%', at + 1)) {
    ++index;
  }
  return fields[index];
}

std::optional<RecognisedLine> recognised(const LogLine& line) {
  if (line.stamp.empty()) return std::nullopt;
  std::optional<RecognisedLine> best;
  std::size_t most = 0;
  for (const LogMessage& message : logMessages()) {
    if (line.category != message.category) continue;
    const std::size_t bytes = constantBytes(message.form);
    Matcher matcher(message);
    if (bytes < most || !matcher.match(message.form, line.text)) continue;
    most = bytes;
    best = {.message = &message, .fields = matcher.takeFields()};
  }
  return best;
}

LogLine inEnglish(const LogLine& line) {
  const std::optional<RecognisedLine> known = recognised(line);
  if (!known || *known->message->english == '\0') return line;
  LogLine english{.stamp = line.stamp, .category = line.category, .text = englishText(*known)};
  for (const LogCategory& category : logCategories()) {
    if (line.category == category.name) english.category = category.english;
  }
  return english;
}

}  // namespace vorlatch::control
