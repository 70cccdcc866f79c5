// How lists spell the content sizes of their files.
//
// Patchers read a size with any number of zeros in front of it as the same number, but trust a file
// without reading it only if its record is, character by character, the one that they have
// remembered. So a zero more makes them read the file again. A list does that for files that were
// another one's for a while: a patcher that was ended half-way may have those on its disk and still
// remember the ones before.
#pragma once

#include <cstddef>
#include <map>
#include <string>

#include "engine/file_record.h"
#include "publish/common/published_list.h"

namespace velmora::publish {

// The number of zeros in front of each file's content size. It never gets less from one list to the
// next, because some patcher may still remember any of the earlier records.
class SizeSpelling {
 public:
  // Of several lists, the one with the most zeros counts for a file.
  void Add(const PublishedList& list);

  // Spells the record's size with as many zeros as its file has had, and `more`. Throws
  // PublishError if the field hasn't room for them.
  void Spell(FileRecord& record, std::size_t more = 0) const;

 private:
  std::map<std::string, std::size_t> zeros_;  // by folded path; only files that have any
};

}  // namespace velmora::publish
