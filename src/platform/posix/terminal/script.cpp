#include "platform/posix/terminal/script.h"

#include <algorithm>
#include <utility>

#include "base/ascii.h"
#include "base/text.h"
#include "platform/posix/terminal/text.h"

namespace velmora::platform::terminal {
namespace {

constexpr char kEscape = '\x1b';

template <typename Matches>
const ButtonKind* FindKind(Matches matches) {
  const auto* const found = std::find_if(kButtons.begin(), kButtons.end(), matches);
  return found == kButtons.end() ? nullptr : found;
}

}  // namespace

void ScriptInput::Feed(std::string_view bytes) {
  const auto parts = SplitLines(bytes);
  for (std::size_t i = 0; i < parts.size(); ++i) {
    if (i > 0) EndLine();
    Keep(parts[i]);
  }
}

void ScriptInput::End() {
  EndLine();
  lines_.push_back({kWaitCommand});
  lines_.push_back({kCloseCommand});
}

ScriptLine ScriptInput::Next() {
  ScriptLine line = std::move(lines_.front());
  lines_.pop_front();
  return line;
}

void ScriptInput::Keep(std::string_view part) {
  if (unfinished_.text.size() + part.size() > kLongestScriptLine) unfinished_ = {{}, true};
  if (!unfinished_.tooLong) unfinished_.text += part;
}

void ScriptInput::EndLine() {
  ScriptLine line = std::exchange(unfinished_, {});
  line.text = std::string(Trimmed(line.text, kWhiteSpace));
  if (line.tooLong || !line.text.empty()) lines_.push_back(std::move(line));
}

const ButtonKind* FindByCommand(std::string_view command) {
  return FindKind([command](const ButtonKind& kind) { return kind.command == command; });
}

std::size_t KeyLength(std::string_view keys) {
  if (keys[0] != kEscape || keys.size() == 1) return 1;
  if (keys[1] != '[') return std::min<std::size_t>(keys[1] == 'O' ? 3 : 2, keys.size());
  for (std::size_t i = 2; i < keys.size(); ++i) {
    const bool isLast = keys[i] >= '@' && keys[i] <= '~';
    if (isLast) return i + 1;
  }
  return keys.size();
}

const ButtonKind* FindByKey(char key) {
  return FindKind([key](const ButtonKind& kind) { return kind.key == key; });
}

}  // namespace velmora::platform::terminal
