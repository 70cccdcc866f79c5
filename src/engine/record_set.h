// The ordered sets of records that a run works through: UpdateSet and RemoveSet.
//
// Shorter paths come before longer ones, and paths of the same length are in byte order. A record
// whose path contains the patcher's name goes to the very front when it is inserted. That rule
// looks at one operand only, so the order isn't a strict weak ordering, and a standard set can't be
// used: where a record ends up depends on the shape of the tree. Hence a red-black tree of our own,
// with the classic insertion.
//
// Not safe for use by two threads at once.
#pragma once

#include <cstddef>
#include <cstdint>
#include <new>
#include <string_view>

#include "base/arena.h"
#include "engine/file_record.h"
#include "engine/packed_record.h"

namespace velmora {

// A path that contains this, in exactly this case, belongs to the patcher itself.
inline constexpr std::string_view kUpdateMarker = "VelmoraUpdate";

// True when `a` comes before `b`: always if a's path contains the marker, otherwise by length in
// bytes, then by unsigned byte order.
[[nodiscard]] bool FileRecordBefore(const FileRecord& a, const FileRecord& b);

class FileRecordSet {
  struct Node {
    Node* parent = nullptr;
    Node* left = nullptr;
    Node* right = nullptr;
    bool red = true;

    // Follows the node in memory.
    [[nodiscard]] const PackedRecord& Record() const {
      return *std::launder(reinterpret_cast<const PackedRecord*>(this + 1));
    }
  };

 public:
  // Visits the records in their order.
  class Iterator {
   public:
    explicit Iterator(const Node* node) : node_(node) {}
    // Returns a new copy on each call.
    FileRecord operator*() const { return node_->Record().Unpacked(); }
    Iterator& operator++();
    bool operator==(const Iterator&) const = default;

   private:
    const Node* node_;
  };

  FileRecordSet() = default;
  FileRecordSet(const FileRecordSet&) = delete;
  FileRecordSet& operator=(const FileRecordSet&) = delete;

  // Inserts a copy of `record`, unless its place is taken by its equal.
  void InsertRecord(const FileRecord& record);

  void Clear();
  [[nodiscard]] std::uint32_t Count() const { return count_; }
  [[nodiscard]] Iterator begin() const { return Iterator(first_); }
  [[nodiscard]] Iterator end() const { return Iterator(nullptr); }

 private:
  static Node* Previous(Node* node);
  Node* NewNode(const FileRecord& record);
  void Link(const FileRecord& record, Node* parent, bool left);
  void Rebalance(Node* node);
  void Rotate(Node* node, bool left);

  Arena memory_;
  std::uint32_t count_ = 0;
  Node* root_ = nullptr;
  Node* first_ = nullptr;
};

extern FileRecordSet UpdateSet;
extern FileRecordSet RemoveSet;

}  // namespace velmora
