#include "engine/reference_list.h"

#include <gtest/gtest.h>

#include <string>

namespace velmora {
namespace {

// What a text is read as: the update set's records with their fields, "+z" if compressed, then the
// removals with their modes, the client, and the number of refused lines.
std::string Parsed(std::string_view text) {
  FileRecordSet updateSet;
  FileRecordSet removeSet;
  std::string clientExe = "none";
  int refused = 0;
  ParseReferenceList(text, updateSet, removeSet, clientExe, [&](std::string_view) { ++refused; });
  std::string parsed;
  for (const FileRecord& r : updateSet) {
    parsed += r.path + "|" + r.transferHash + "|" + r.transferSize + "|" + r.contentHash + "|" +
              r.contentSize + (r.compressed ? "+z;" : ";");
  }
  for (const FileRecord& r : removeSet) parsed += "DEL " + r.path + "|" + r.transferHash + ";";
  if (clientExe != "none") parsed += "EXE " + clientExe + ";";
  if (refused > 0) parsed += std::to_string(refused) + " refused;";
  return parsed;
}

TEST(ReferenceList, Lines) {
  const struct {
    std::string_view text;
    std::string parsed;
  } cases[] = {
      {"FILE : a, b, c, d, e\r\n", "a|b|c|d|e;"},
      {"  FILE\t:\va,\t b ,c,d,e", "a|b |c|d|e;"},
      {"FILE :a,b", "a|b|||;"},
      // A colon right after the keyword belongs to it.
      {"FILE: a,b,c,d,e", ""},
      {"FILE a,b,c,d,e", "||||;"},
      {"FILE", "||||;"},
      {"FILE : ,b,c", "||||;"},
      // The scan stops at the first empty field, and at the first missing comma.
      {"FILE : a,,c,d,e", "a||||;"},
      {"FILE : a, b,\r,d", "a|b|||;"},
      {"FILE : a\r,b,c,d,e", "a||||;"},
      {"FILE : data\\a b.pak ,b,c,d,e", "data\\a b.pak |b|c|d|e;"},
      // The fifth field ends at a space too.
      {"FILE : a,b,c,d f,e g", "a|b|c|d f|e;"},
      {"FILE : a.compressed.dat,b,c,d,e", "a|b|c|d|e+z;"},
      {"FILE : .compressed", "||||+z;"},
      {"file : a\nFILES : a\n# FILE : a\n\n \t\r\n: a,b\nexe : a.exe\nEXE: b.exe", ""},
      // The wide space of code page 932 and the second byte of its characters are text.
      {"FILE : \x81\x40\x95\x5C,b", "\x81\x40\x95\x5C|b|||;"},
      {"DEL : old.dat\nDEL : *.tmp, R\nDEL : x.compressed, r, 1\nDEL",
       "DEL |;DEL *.tmp|R;DEL old.dat|;DEL x.compressed|r;"},
      {"EXE : first.exe\n\nEXE : bin\\second.exe, ignored", "EXE bin\\second.exe;"},
      {"EXE :", "EXE ;"},
      {{"FILE : a\r\nFILE : b\n\r\n\nFILE : c\0\nFILE : d", 40}, "a||||;b||||;c||||;"},
  };
  for (const auto& test : cases) EXPECT_EQ(Parsed(test.text), test.parsed) << test.text;
}

TEST(ReferenceList, OverlongLineEndsTheList) {
  const std::string longest = std::string("FILE : a,b,c,d,e ").append(kMaxListLine - 17, 'x');
  EXPECT_EQ(Parsed(longest + "\nFILE : z"), "a|b|c|d|e;z||||;");
  EXPECT_EQ(Parsed("FILE : y\n" + longest + "x\nFILE : z"), "y||||;");
  // A carriage return belongs to the line.
  EXPECT_EQ(Parsed(longest + "\r\nFILE : z"), "");
}

TEST(ReferenceList, LineWithAnOverlongFieldIsRefused) {
  const struct {
    std::string start;
    std::size_t limit;  // of the field that follows
    bool counts;
  } cases[] = {
      {"FILE : ", kMaxListPath, true},         {"FILE : a,", kMaxListHash, true},
      {"FILE : a,b,", kMaxListSize, true},     {"FILE : a,b,c,", kMaxListHash, true},
      {"FILE : a,b,c,d,", kMaxListSize, true}, {"DEL : ", kMaxListPath, true},
      {"DEL : a,", kMaxListHash, true},        {"DEL : a,R,", kMaxListSize, false},
      {"EXE : ", kMaxListPath, true},          {"EXE : a,", kMaxListHash, false},
      {"NOTE : ", kMaxListPath, false},
  };
  for (const auto& test : cases) {
    const std::string longest = test.start + std::string(test.limit, 'x');
    EXPECT_EQ(Parsed(longest).find("refused"), std::string::npos) << longest;
    EXPECT_EQ(Parsed(longest + "x") == "1 refused;", test.counts) << longest;
  }
}

}  // namespace
}  // namespace velmora
