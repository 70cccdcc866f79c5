#include "engine/record_set.h"

#include <string>
#include <string_view>

namespace velmora {

FileRecordSet UpdateSet;
FileRecordSet RemoveSet;

namespace {

bool HasMarker(std::string_view path) { return path.find(kUpdateMarker) != std::string::npos; }

bool PathBefore(std::string_view a, std::string_view b) {
  return a.size() != b.size() ? a.size() < b.size() : a < b;
}

}  // namespace

bool FileRecordBefore(const FileRecord& a, const FileRecord& b) {
  return HasMarker(a.path) || PathBefore(a.path, b.path);
}

FileRecordSet::Iterator& FileRecordSet::Iterator::operator++() {
  if (node_->right != nullptr) {
    node_ = node_->right;
    while (node_->left != nullptr) node_ = node_->left;
    return *this;
  }
  const Node* child = node_;
  node_ = node_->parent;
  while (node_ != nullptr && child == node_->right) {
    child = node_;
    node_ = node_->parent;
  }
  return *this;
}

FileRecordSet::Node* FileRecordSet::Previous(Node* node) {
  if (node->left != nullptr) {
    node = node->left;
    while (node->right != nullptr) node = node->right;
    return node;
  }
  Node* child = node;
  node = node->parent;
  while (node != nullptr && child == node->left) {
    child = node;
    node = node->parent;
  }
  return node;
}

// Each comparison is FileRecordBefore's. What it asks of the new record alone is asked once.
void FileRecordSet::InsertRecord(const FileRecord& record) {
  const bool isMarked = HasMarker(record.path);
  Node* parent = nullptr;
  bool left = true;
  for (Node* node = root_; node != nullptr; node = left ? node->left : node->right) {
    parent = node;
    left = isMarked || PathBefore(record.path, node->Record().path());
  }
  const bool isFirst = left && (parent == nullptr || parent == first_);
  if (!isFirst) {
    const std::string_view previous = (left ? Previous(parent) : parent)->Record().path();
    if (!HasMarker(previous) && !PathBefore(previous, record.path)) return;
  }
  Link(record, parent, left);
}

FileRecordSet::Node* FileRecordSet::NewNode(const FileRecord& record) {
  void* place = memory_.Take(sizeof(Node) + PackedRecord::PackedSize(record));
  auto* node = new (place) Node;
  PackedRecord::Pack(node + 1, record);
  ++count_;
  return node;
}

void FileRecordSet::Link(const FileRecord& record, Node* parent, bool left) {
  Node* node = NewNode(record);
  node->parent = parent;
  if (parent == nullptr) {
    root_ = node;
  } else {
    (left ? parent->left : parent->right) = node;
  }
  if (first_ == nullptr || (left && parent == first_)) first_ = node;
  Rebalance(node);
}

// Restores the red-black rules above a new red node: no red node has a red child, and all paths
// from the root to a leaf have the same number of black nodes.
void FileRecordSet::Rebalance(Node* node) {
  while (node != root_ && node->parent->red) {
    Node* parent = node->parent;
    Node* grandparent = parent->parent;
    const bool parentIsLeft = parent == grandparent->left;
    Node* uncle = parentIsLeft ? grandparent->right : grandparent->left;
    if (uncle != nullptr && uncle->red) {
      parent->red = false;
      uncle->red = false;
      grandparent->red = true;
      node = grandparent;
      continue;
    }
    const bool isInner = node == (parentIsLeft ? parent->right : parent->left);
    if (isInner) {
      Rotate(parent, parentIsLeft);
      parent = node;
    }
    parent->red = false;
    grandparent->red = true;
    Rotate(grandparent, !parentIsLeft);
    break;
  }
  root_->red = false;
}

// Rotates `node` down to the left (or right), so that its right (or left) child takes its place.
void FileRecordSet::Rotate(Node* node, bool left) {
  Node* up = left ? node->right : node->left;
  Node* inner = left ? up->left : up->right;

  (left ? node->right : node->left) = inner;
  if (inner != nullptr) inner->parent = node;

  up->parent = node->parent;
  if (node->parent == nullptr) {
    root_ = up;
  } else {
    (node == node->parent->left ? node->parent->left : node->parent->right) = up;
  }

  (left ? up->left : up->right) = node;
  node->parent = up;
}

void FileRecordSet::Clear() {
  root_ = nullptr;
  first_ = nullptr;
  count_ = 0;
  memory_.Clear();
}

}  // namespace velmora
