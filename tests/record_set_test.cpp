#include "engine/record_set.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <random>
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
  const auto first = set.InsertRecord(
      {.path = "a", .transferHash = "1", .transferSize = "", .contentHash = "", .contentSize = ""});
  const auto second = set.InsertRecord(
      {.path = "a", .transferHash = "2", .transferSize = "", .contentHash = "", .contentSize = ""});
  EXPECT_TRUE(first.entered);
  EXPECT_FALSE(second.entered);
  EXPECT_EQ(second.position, first.position);
  EXPECT_EQ((*set.begin()).transferHash, "1");

  set.Clear();
  EXPECT_EQ(set.Count(), 0U);
  EXPECT_EQ(set.begin(), set.end());
  EXPECT_TRUE(set.InsertRecord({}).entered);
}

// A naive model of the same procedure: a red-black tree with value semantics, kept as indices into
// a list and rebuilt by the textbook's cases in their recursive form, with the order of elements
// taken by a full walk at every step.
class NaiveSet {
 public:
  void Insert(const FileRecord& record) {
    int parent = -1;
    bool left = true;
    for (int at = root_; at >= 0; at = Child(at, left)) {
      parent = at;
      left = FileRecordBefore(record, nodes_[Index(at)].record);
    }
    const std::vector<int> order = Walk();
    if (!(left && (order.empty() || order.front() == parent))) {
      const auto place = std::find(order.begin(), order.end(), parent);
      const int neighbour = left ? *(place - 1) : parent;
      if (!FileRecordBefore(nodes_[Index(neighbour)].record, record)) return;
    }
    nodes_.push_back({record, true, -1, -1, parent});
    const int node = static_cast<int>(nodes_.size()) - 1;
    SetChild(parent, left, node);
    InsertCase1(node);
  }

  [[nodiscard]] std::vector<std::string> Order() const {
    std::vector<std::string> result;
    for (const int at : Walk()) {
      const FileRecord& record = nodes_[Index(at)].record;
      result.push_back(record.path + "#" + record.transferSize);
    }
    return result;
  }

 private:
  struct Node {
    FileRecord record;
    bool red;
    int left, right, parent;
  };
  static std::size_t Index(int at) { return static_cast<std::size_t>(at); }
  int Child(int at, bool left) const {
    return left ? nodes_[Index(at)].left : nodes_[Index(at)].right;
  }
  int Parent(int at) const { return nodes_[Index(at)].parent; }
  bool IsLeft(int at) const { return nodes_[Index(Parent(at))].left == at; }
  bool IsRed(int at) const { return at >= 0 && nodes_[Index(at)].red; }
  void SetChild(int parent, bool left, int child) {
    if (parent < 0) {
      root_ = child;
    } else {
      (left ? nodes_[Index(parent)].left : nodes_[Index(parent)].right) = child;
    }
    if (child >= 0) nodes_[Index(child)].parent = parent;
  }

  void WalkFrom(int at, std::vector<int>& order) const {
    if (at < 0) return;
    WalkFrom(Child(at, true), order);
    order.push_back(at);
    WalkFrom(Child(at, false), order);
  }
  [[nodiscard]] std::vector<int> Walk() const {
    std::vector<int> order;
    WalkFrom(root_, order);
    return order;
  }

  void RotateUp(int at) {
    const int parent = Parent(at);
    const int grandparent = Parent(parent);
    const bool wasLeft = IsLeft(at);
    const bool parentWasLeft = grandparent >= 0 && IsLeft(parent);
    SetChild(parent, wasLeft, Child(at, !wasLeft));
    SetChild(at, !wasLeft, parent);
    SetChild(grandparent, parentWasLeft, at);
  }

  void InsertCase1(int at) {
    if (Parent(at) < 0) {
      nodes_[Index(at)].red = false;
    } else if (IsRed(Parent(at))) {
      InsertCase2(at);
    }
  }
  void InsertCase2(int at) {
    const int parent = Parent(at);
    const int grandparent = Parent(parent);
    const int uncle = Child(grandparent, !IsLeft(parent));
    if (IsRed(uncle)) {
      nodes_[Index(parent)].red = nodes_[Index(uncle)].red = false;
      nodes_[Index(grandparent)].red = true;
      InsertCase1(grandparent);
      return;
    }
    if (IsLeft(at) != IsLeft(parent)) {
      RotateUp(at);
      at = parent;
    }
    const int top = Parent(at);
    nodes_[Index(top)].red = false;
    nodes_[Index(Parent(top))].red = true;
    RotateUp(top);
  }

  std::vector<Node> nodes_;
  int root_ = -1;
};

TEST(RecordSet, AgreesWithANaiveModelOnRandomLists) {
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
    NaiveSet model;
    for (std::size_t i = 0; i < lines.size(); ++i) {
      FileRecord record;
      record.path = lines[i];
      record.transferSize = std::to_string(i);
      model.Insert(record);
    }
    std::vector<std::string> order;
    for (const FileRecord& record : set) order.push_back(record.path + "#" + record.transferSize);
    ASSERT_EQ(order, model.Order()) << "round " << round;
    ASSERT_EQ(order.size(), set.Count());
  }
}

}  // namespace
}  // namespace velmora
