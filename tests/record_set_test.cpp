#include "engine/record_set.h"

#include <gtest/gtest.h>

#include <random>
#include <set>
#include <string>
#include <vector>

namespace velmora {
namespace {

using Paths = std::vector<std::string>;

// Inserts records with these paths; `transferSize` tells them apart by their number.
void Fill(FileRecordSet& set, const Paths& paths) {
  for (std::size_t i = 0; i < paths.size(); ++i) {
    FileRecord record;
    record.path = paths[i];
    record.transferSize = std::to_string(i);
    set.InsertRecord(record);
  }
}

Paths PathsOf(const FileRecordSet& set) {
  Paths paths;
  for (const FileRecord& record : set) paths.push_back(record.path);
  return paths;
}

TEST(RecordSet, OrderOfSmallLists) {
  const struct {
    Paths lines;
    Paths order;
  } cases[] = {
      {{}, {}},
      {{"VelmoraUpdate.exe", "VelmoraUpdate.dat"}, {"VelmoraUpdate.dat", "VelmoraUpdate.exe"}},
      {{"a.dat", "VelmoraUpdate.exe"}, {"VelmoraUpdate.exe", "a.dat"}},
      {{"VelmoraUpdate.exe", "a.dat"}, {"a.dat", "VelmoraUpdate.exe"}},
      {{"VelmoraUpdate.exe", "VelmoraUpdate.exe"}, {"VelmoraUpdate.exe", "VelmoraUpdate.exe"}},
      {{"a.dat", "a.dat"}, {"a.dat"}},
      {{"bbb", "aa", "c", "dddd"}, {"c", "aa", "bbb", "dddd"}},
      {{"x.dat", "y.dat", "VelmoraUpdate.exe", "z.dat", "a.dat"},
       {"a.dat", "VelmoraUpdate.exe", "x.dat", "y.dat", "z.dat"}},
      {{"a", "VelmoraUpdate.exe", "VelmoraUpdate.exe", "a"},
       {"a", "VelmoraUpdate.exe", "VelmoraUpdate.exe", "a"}},
      {{"VelmoraClient.exe", "VelmoraOption.exe", "VelmoraUpdate.dat", "VelmoraUpdate.exe",
        "data\\a.pak", "data\\b.pak"},
       {"data\\a.pak", "data\\b.pak", "VelmoraUpdate.exe", "VelmoraUpdate.dat", "VelmoraClient.exe",
        "VelmoraOption.exe"}},
      {{"data\\a.pak", "data\\b.pak", "VelmoraClient.exe", "VelmoraOption.exe", "VelmoraUpdate.dat",
        "VelmoraUpdate.exe"},
       {"VelmoraUpdate.exe", "VelmoraUpdate.dat", "data\\a.pak", "data\\b.pak", "VelmoraClient.exe",
        "VelmoraOption.exe"}},
      // The marker counts in this case only; an empty path stands first; case tells paths apart;
      // bytes above 0x7F stand behind the others.
      {{"velmoraupdate.exe", "a"}, {"a", "velmoraupdate.exe"}},
      {{"b", "", "a"}, {"", "a", "b"}},
      {{"A.dat", "a.dat"}, {"A.dat", "a.dat"}},
      {{"\xE0", "z", "\x81"}, {"z", "\x81", "\xE0"}},
  };
  for (const auto& test : cases) {
    FileRecordSet set;
    Fill(set, test.lines);
    EXPECT_EQ(PathsOf(set), test.order);
    EXPECT_EQ(set.Count(), test.order.size());
  }
}

TEST(RecordSet, FirstLineOfAPathWinsAndClearForgets) {
  FileRecordSet set;
  FileRecord record;
  record.path = "a";
  record.transferHash = "1";
  const auto first = set.InsertRecord(record);
  record.transferHash = "2";
  const auto second = set.InsertRecord(record);
  EXPECT_TRUE(first.entered);
  EXPECT_FALSE(second.entered);
  EXPECT_EQ(second.position, first.position);
  EXPECT_EQ((*set.begin()).transferHash, "1");

  set.Clear();
  EXPECT_EQ(set.Count(), 0U);
  EXPECT_EQ(set.begin(), set.end());
  EXPECT_TRUE(set.InsertRecord({}).entered);
}

struct Before {
  bool operator()(const FileRecord& a, const FileRecord& b) const { return FileRecordBefore(a, b); }
};

Paths OrderOf(const auto& records) {
  Paths order;
  for (const FileRecord& record : records) order.push_back(record.path + "#" + record.transferSize);
  return order;
}

// The library's set looks for a place by the same comparisons and keeps its balance by the same
// rules. That is so of this library; the program can't rely on it.
TEST(RecordSet, AgreesWithTheLibraryOnRandomLists) {
  std::mt19937 random(20090203);
  const auto upTo = [&random](unsigned limit) {
    return static_cast<unsigned>(random() % (limit + 1));
  };
  for (int round = 0; round < 10000; ++round) {
    Paths lines;
    for (unsigned i = upTo(24); i > 0; --i) {
      std::string path(1 + upTo(2), 'a');
      for (char& c : path) c = static_cast<char>('a' + upTo(3));
      lines.push_back(path);
    }
    for (unsigned i = upTo(5); i > 0; --i) {
      static const char* const kMarkers[] = {"VelmoraUpdate", "d\\VelmoraUpdate.exe",
                                             "VelmoraUpdate.dat", "_VelmoraUpdate"};
      lines.insert(lines.begin() + upTo(static_cast<unsigned>(lines.size())), kMarkers[upTo(3)]);
    }

    FileRecordSet set;
    Fill(set, lines);
    std::set<FileRecord, Before> model;
    for (std::size_t i = 0; i < lines.size(); ++i) {
      FileRecord record;
      record.path = lines[i];
      record.transferSize = std::to_string(i);
      model.insert(record);
    }
    ASSERT_EQ(OrderOf(set), OrderOf(model)) << "round " << round;
    ASSERT_EQ(model.size(), set.Count());
  }
}

}  // namespace
}  // namespace velmora
