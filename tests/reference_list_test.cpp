#include "engine/reference_list.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace velmora {
namespace {

struct Parsed {
  std::vector<std::string> update;  // the fields joined by '|', "+z" behind if compressed
  std::vector<std::string> remove;
  std::string clientExe = "before";
  std::size_t refused = 0;
};

Parsed Parse(std::string_view text) {
  FileRecordSet updateSet;
  FileRecordSet removeSet;
  Parsed parsed;
  ParseReferenceList(text, updateSet, removeSet, parsed.clientExe,
                     [&parsed](std::string_view) { ++parsed.refused; });
  for (const FileRecord& r : updateSet) {
    parsed.update.push_back(r.path + "|" + r.transferHash + "|" + r.transferSize + "|" +
                            r.contentHash + "|" + r.contentSize + (r.compressed ? "+z" : ""));
  }
  for (const FileRecord& r : removeSet) parsed.remove.push_back(r.path + "|" + r.transferHash);
  return parsed;
}

TEST(ReferenceList, FileLines) {
  const struct {
    std::string_view line;
    std::vector<std::string> records;
  } cases[] = {
      {"FILE : a,b,c,d,e", {"a|b|c|d|e"}},
      {"FILE : a, b, c, d, e\r\n", {"a|b|c|d|e"}},
      {"  FILE\t:\ta,\t b ,c,d,e", {"a|b |c|d|e"}},
      {"FILE :a,b", {"a|b|||"}},
      // A colon directly behind the keyword belongs to it.
      {"FILE: a,b,c,d,e", {}},
      {"FILE a,b,c,d,e", {"||||"}},
      {"FILE", {"||||"}},
      {"FILE :", {"||||"}},
      {"FILE : ,b,c", {"||||"}},
      {"FILE : a", {"a||||"}},
      // The scan stops at the first empty field, and at the first missing comma.
      {"FILE : a,,c,d,e", {"a||||"}},
      {"FILE : a, b,\r,d", {"a|b|||"}},
      {"FILE : a\r,b,c,d,e", {"a||||"}},
      {"FILE : data\\a b.pak ,b,c,d,e", {"data\\a b.pak |b|c|d|e"}},
      // The fifth field ends at a blank too.
      {"FILE : a,b,c,d,e f", {"a|b|c|d|e"}},
      {"FILE : a,b,c,d f,e,g", {"a|b|c|d f|e"}},
      {"FILE : a.dat.compressed,b,c,d,e", {"a.dat|b|c|d|e+z"}},
      {"FILE : a.compressed.dat,b,c,d,e", {"a|b|c|d|e+z"}},
      {"FILE : .compressed", {"||||+z"}},
      {"file : a,b,c,d,e", {}},
      {"FILES : a,b,c,d,e", {}},
      {"# FILE : a", {}},
      {"", {}},
      {" \t\r", {}},
      {": a,b", {}},
      // Of the white space of Japanese text, none counts as such.
      {"FILE : \x81\x40"
       "a,b,c,d,e",
       {"\x81\x40"
        "a|b|c|d|e"}},
      {"FILE : \x95\x5C.dat,b,c,d,e", {"\x95\x5C.dat|b|c|d|e"}},
      {"FILE\v:\fa,b", {"a|b|||"}},
  };
  for (const auto& test : cases) {
    EXPECT_EQ(Parse(test.line).update, test.records) << test.line;
  }
}

TEST(ReferenceList, RemovalsAndClient) {
  const Parsed parsed = Parse(
      "DEL : old.dat\nDEL : *.tmp, R\nDEL : x.compressed, r, 1\n\nEXE : first.exe\nDEL\n"
      "EXE : bin\\second.exe, ignored");
  EXPECT_EQ(parsed.remove,
            (std::vector<std::string>{"|", "*.tmp|R", "old.dat|", "x.compressed|r"}));
  EXPECT_EQ(parsed.clientExe, "bin\\second.exe");
  EXPECT_TRUE(parsed.update.empty());

  EXPECT_EQ(Parse("EXE :").clientExe, "");
  EXPECT_EQ(Parse("exe : a.exe\nEXE: b.exe").clientExe, "before");
}

TEST(ReferenceList, LinesAndTheirLimits) {
  const std::string start = "FILE : a,b,c,d,e ";
  const std::string longest = start + std::string(kMaxListLine - start.size(), 'x');
  EXPECT_EQ(Parse(longest + "\nFILE : z").update.size(), 2U);
  EXPECT_EQ(Parse(longest + "x\nFILE : z").update.size(), 0U);
  // A carriage return counts to the line.
  EXPECT_EQ(Parse(longest + "\r\nFILE : z").update.size(), 0U);
  EXPECT_EQ(Parse("FILE : y\n" + longest + "x").update.size(), 1U);

  EXPECT_EQ(Parse("FILE : a\r\nFILE : b\n\r\n\nFILE : c").update.size(), 3U);
  EXPECT_EQ(Parse(std::string_view("FILE : a\nFILE : b\0\nFILE : c", 27)).update.size(), 2U);
}

TEST(ReferenceList, LineWithAnOverlongFieldIsRefused) {
  const auto filled = [](std::size_t length) { return std::string(length, 'x'); };
  const struct {
    std::string line;
    std::size_t refused;
  } cases[] = {
      {"FILE : " + filled(kMaxListPath) + ",b", 0},
      {"FILE : " + filled(kMaxListPath + 1) + ",b", 1},
      {"DEL : " + filled(kMaxListPath), 0},
      {"DEL : " + filled(kMaxListPath + 1), 1},
      {"DEL : a, " + filled(kMaxListHash + 1), 1},
      {"EXE : " + filled(kMaxListPath + 1), 1},
      // What nobody reads may be as long as it likes.
      {"EXE : a, " + filled(kMaxListHash + 1), 0},
      {"DEL : a, R, " + filled(kMaxListSize + 1), 0},
      {"FILE : a," + filled(kMaxListHash) + "," + filled(kMaxListSize) + "," +
           filled(kMaxListHash) + "," + filled(kMaxListSize),
       0},
      {"FILE : a," + filled(kMaxListHash + 1), 1},
      {"FILE : a,b," + filled(kMaxListSize + 1), 1},
      {"FILE : a,b,c," + filled(kMaxListHash + 1), 1},
      {"FILE : a,b,c,d," + filled(kMaxListSize + 1), 1},
      {"NOTE : " + filled(kMaxListPath + 1), 0},
  };
  for (const auto& test : cases) {
    const Parsed parsed = Parse(test.line);
    EXPECT_EQ(parsed.refused, test.refused) << test.line;
    if (test.refused != 0) {
      EXPECT_TRUE(parsed.update.empty() && parsed.remove.empty()) << test.line;
      EXPECT_EQ(parsed.clientExe, "before");
    }
  }
}

}  // namespace
}  // namespace velmora
