#include "engine/record_set.h"

#include <gtest/gtest.h>

#include <random>
#include <set>
#include <string>
#include <vector>

namespace velmora {
namespace {

// Records with these paths, which '|' separates. Each has its number as its size.
std::vector<FileRecord> RecordsOf(std::string paths) {
  std::vector<FileRecord> records;
  paths += '|';
  for (std::size_t at = 0; at < paths.size(); at = paths.find('|', at) + 1) {
    FileRecord& record = records.emplace_back();
    record.path = paths.substr(at, paths.find('|', at) - at);
    record.transferSize = std::to_string(records.size() - 1);
  }
  return records;
}

std::string OrderOf(const auto& records) {
  std::string order;
  for (const FileRecord& record : records) order += record.path + "#" + record.transferSize + " ";
  return order;
}

TEST(RecordSet, OrderOfSmallLists) {
  const struct {
    const char* paths;
    const char* order;
  } cases[] = {
      {"bbb|aa|c|dddd", "c#2 aa#1 bbb#0 dddd#3 "},
      {"a.dat|a.dat", "a.dat#0 "},
      {"b||a", "#1 a#2 b#0 "},
      {"\xE0|z|\x81", "z#1 \x81#2 \xE0#0 "},
      // The patcher's own files go to the front at their insert, also in front of their equals.
      {"a|VelmoraUpdate.exe", "VelmoraUpdate.exe#1 a#0 "},
      {"VelmoraUpdate.exe|VelmoraUpdate.exe", "VelmoraUpdate.exe#1 VelmoraUpdate.exe#0 "},
      {"velmoraupdate.exe|a", "a#1 velmoraupdate.exe#0 "},
      {"x.dat|y.dat|VelmoraUpdate.exe|z.dat|a.dat",
       "a.dat#4 VelmoraUpdate.exe#2 x.dat#0 y.dat#1 z.dat#3 "},
      {"a|VelmoraUpdate.exe|VelmoraUpdate.exe|a",
       "a#3 VelmoraUpdate.exe#2 VelmoraUpdate.exe#1 a#0 "},
      {"C.exe|O.exe|VelmoraUpdate.dat|VelmoraUpdate.exe|d\\a|d\\b",
       "d\\a#4 d\\b#5 VelmoraUpdate.exe#3 VelmoraUpdate.dat#2 C.exe#0 O.exe#1 "},
  };
  FileRecordSet set;
  for (const auto& test : cases) {
    set.Clear();
    for (const FileRecord& record : RecordsOf(test.paths)) set.InsertRecord(record);
    EXPECT_EQ(OrderOf(set), test.order);
  }
}

// The library's set compares in the same order and balances its tree by the same rules. That is
// true of this library; the program can't rely on it.
TEST(RecordSet, AgreesWithTheLibraryOnRandomLists) {
  std::mt19937 random(20090203);
  const auto below = [&random](unsigned limit) { return static_cast<unsigned>(random() % limit); };
  static const char* const kMarked[] = {"VelmoraUpdate", "d\\VelmoraUpdate.exe",
                                        "VelmoraUpdate.dat", "_VelmoraUpdate"};
  for (int round = 0; round < 10000; ++round) {
    std::string paths = "a";
    for (unsigned i = below(30); i > 0; --i) {
      paths += '|';
      if (below(8) == 0) paths += kMarked[below(4)];
      for (unsigned letters = below(4); letters > 0; --letters) {
        paths += static_cast<char>('a' + below(4));
      }
    }
    FileRecordSet set;
    std::set<FileRecord, decltype(&FileRecordBefore)> model(FileRecordBefore);
    for (const FileRecord& record : RecordsOf(paths)) {
      set.InsertRecord(record);
      model.insert(record);
    }
    ASSERT_EQ(OrderOf(set), OrderOf(model)) << paths;
    ASSERT_EQ(set.Count(), model.size()) << paths;
  }
}

}  // namespace
}  // namespace velmora
