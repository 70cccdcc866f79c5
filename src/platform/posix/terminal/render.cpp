#include "platform/posix/terminal/render.h"

#include <algorithm>

#include "base/text.h"
#include "base/texts.h"
#include "platform/posix/dialog/details.h"
#include "platform/posix/terminal/text.h"
#include "platform/utf8.h"

namespace velmora::platform::terminal {
namespace {

using dialog::Bar;
using dialog::ButtonState;
using dialog::Details;
using dialog::kButtons;

constexpr std::size_t kStatusLines = 2;
constexpr std::size_t kWidestBar = 20;
constexpr std::size_t kWidestRule = 30;
constexpr std::size_t kNarrowestBar = 5;
constexpr char kGap[] = "  ";

// Empty if there is no room for a useful bar.
std::string DrawBar(int percent, std::size_t room) {
  constexpr std::size_t kFrame = 4;  // brackets and gap
  if (room < kNarrowestBar + kFrame) return {};
  const std::size_t cells = std::min(room - kFrame, kWidestBar);
  const std::size_t filled = cells * static_cast<std::size_t>(percent) / 100;
  return kGap + ("[" + std::string(filled, '#') + std::string(cells - filled, '-') + "]");
}

// A detail that doesn't fit is left out, and so are those after it: a part of a number would be
// another number.
std::string BarLine(const char* label, const Bar& bar, const Details& details,
                    std::size_t columns) {
  const int percent = PercentOf(bar);
  const std::string head = CutToCells(FormatText("%-5s%3d %%", label, percent), columns);
  std::string tail;
  for (const std::string& detail : details) {
    if (head.size() + tail.size() + sizeof kGap - 1 + detail.size() > columns) break;
    tail += kGap + detail;
  }
  return head + DrawBar(percent, columns - head.size() - tail.size()) + tail;
}

void AddStatus(std::vector<std::string>& lines, const std::string& status, std::size_t columns) {
  const std::string utf8 = ToUtf8(status);
  auto parts = SplitLines(utf8);
  parts.resize(kStatusLines);
  for (const auto part : parts) lines.push_back(CutToCells(part, columns));
}

struct ButtonText {
  std::string utf8;
  bool dimmed;
};

std::vector<ButtonText> ButtonTexts(const DialogModel& model) {
  std::vector<ButtonText> items;
  for (std::size_t i = 0; i < kButtons.size(); ++i) {
    const ButtonState& button = model.buttons[i];
    // The brackets differ as well, since not every terminal can dim.
    const std::string key = FormatText(button.enabled ? "[%c] " : "(%c) ", kButtons[i].key);
    items.push_back({key + ToUtf8(button.caption), !button.enabled});
  }
  items.push_back({"[q] close", false});
  return items;
}

std::string Styled(const std::string& text, bool dimmed) {
  return dimmed ? "\x1b[2m" + text + "\x1b[0m" : text;
}

void AddButtons(std::vector<std::string>& lines, const DialogModel& model, std::size_t columns) {
  std::size_t taken = 0;
  for (const ButtonText& item : ButtonTexts(model)) {
    const std::string text = CutToCells(item.utf8, columns);
    const std::size_t cells = CellsOf(text);
    const bool fitsOnLine = taken > 0 && taken + 1 + cells <= columns;
    if (!fitsOnLine) {
      lines.emplace_back();
      taken = 0;
    }
    if (fitsOnLine) lines.back() += ' ';
    lines.back() += Styled(text, item.dimmed);
    taken += cells + (fitsOnLine ? 1 : 0);
  }
}

const char* MarkFor(std::uint32_t type) {
  if (type == kBoxError) return "[!] ";
  if (type == kBoxInformation) return "[i] ";
  return "";
}

}  // namespace

std::vector<std::string> RenderBlock(const DialogModel& model, const Figures& figures,
                                     std::size_t columns) {
  std::vector<std::string> lines;
  lines.push_back(CutToCells(ToUtf8(texts::kDialogTitle), columns));
  if (!model.page.empty()) lines.push_back(CutToCells(ToUtf8("Page: " + model.page), columns));
  AddStatus(lines, model.status, columns);
  lines.push_back(BarLine("File", model.fileBar, FileDetails(model.fileBar, figures), columns));
  lines.push_back(
      BarLine("All", model.overallBar, OverallDetails(model.overallBar, figures), columns));
  AddButtons(lines, model, columns);
  return lines;
}

std::vector<std::string> RenderBox(const BoxText& box, std::size_t columns) {
  std::vector<std::string> lines = {std::string(std::min(columns, kWidestRule), '-')};
  lines.push_back(CutToCells(MarkFor(box.type) + ToUtf8(box.caption), columns));
  // Wrapped, not cut: the text may end with the name of the file that it is about.
  for (std::string& line : WrapToCells(ToUtf8(box.text), columns)) lines.push_back(std::move(line));
  lines.push_back(CutToCells("[Enter]", columns));
  return lines;
}

std::vector<std::string> RenderCancelNotice(std::size_t columns) {
  return WrapToCells(kCancelNotice, columns);
}

std::vector<std::string> Arrange(std::vector<std::string> block, std::vector<std::string> box,
                                 std::size_t rows) {
  if (box.size() > rows) box.erase(box.begin());
  if (box.size() > rows) {
    box.erase(box.begin() + static_cast<std::ptrdiff_t>(rows) - 1, box.end() - 1);
  }
  block.resize(std::min(block.size(), rows - box.size()));
  block.insert(block.end(), box.begin(), box.end());
  return block;
}

}  // namespace velmora::platform::terminal
