// A publication: a folder that a web server offers as it is, with the reference list and all files
// that patchers download.
#pragma once

#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <memory>
#include <string>
#include <vector>

#include "engine/file_record.h"
#include "publish/build/changes.h"
#include "publish/build/payload.h"
#include "publish/common/disk_text.h"
#include "publish/common/published_list.h"
#include "publish/lint/rules.h"

namespace velmora::publish {

struct BuildOptions {
  std::filesystem::path tree;
  std::filesystem::path output;
  PayloadOptions payload;
  std::string listName = "hashlist.dat";
  // The path with which each request begins, which the settings in the tree must have. Nothing:
  // whatever they have.
  std::optional<std::string> dataPath;
  std::string clientExe;             // empty: patchers keep the name they know
  std::vector<FileRecord> removals;  // path and mode; slashes separate folders, too
  // An earlier list, or the folder of its publication: files that are gone since then are removed
  // from players' disks. May be the one in `output`, also when that doesn't exist yet. Empty: none.
  std::filesystem::path removeFrom;
  // The folder of another publication, whose payloads of unchanged files are taken over: by a hard
  // link, or a copy where that isn't possible. Empty: none.
  std::filesystem::path reuse;
  // The text for the file enable.cdn, a URL. Empty: the one in `output` stays.
  std::string redirection;
  bool takesRedirection = true;  // the one of `reuse`, if there is none in `output`
  // The share of the files, and of their bytes, that the tree may lack of each earlier publication:
  // `removeFrom` and the one in `output`, or `reuse` if there is neither.
  unsigned maxRemovedPercent = 25;
  bool allowEmpty = false;  // a tree without a file
  // The encoding of the tree's names, and of the texts of `clientExe` and `removals`, as a
  // publisher types them. With kGuess, UTF-8 beyond ASCII is refused.
  NameEncoding names = NameEncoding::kGuess;
  // Rules as ignore_rules.h describes them. Empty: those of the tree, if it has any.
  std::filesystem::path ignoreFile;
  // Of those about what players start with (IsAboutStart): their findings are published. So are
  // those that the file of accepted findings names (acceptance.h).
  std::vector<Rule> accepted;
};

struct BuildSummary {
  std::size_t files = 0;
  std::size_t compressed = 0;
  std::uint64_t contentBytes = 0;
  std::uint64_t transferBytes = 0;
  std::size_t reused = 0;  // payloads of `reuse`
  bool canReuse = false;   // `reuse` was made with the same settings
  Changes changes;         // since `removeFrom`, or else the one in `output`, or else `reuse`
  bool removesWhatIsGone = false;  // or else players keep the files that `changes` has as removed
  // What a publisher may not have meant, ready for a terminal. It is published all the same.
  std::vector<std::string> warnings;
  std::size_t accepted = 0;  // findings of the linter that would have been complaints or warnings
};

// Writes the payloads of all files of the tree and the list. Once everything is
// complete, moves the payloads to their places, and then the list in one step, so that a list never
// names a file that isn't there. That holds even after a power cut: the payloads are flushed to
// the disk before the list is moved, and the list before this function returns. (This flushes the
// whole file system three times, which is far faster than flushing each file.) If the publication
// in `output` was made with the same settings, the payloads of unchanged files are left alone. The
// result is the same on every run and machine with the same libdeflate, whatever `output` held,
// except for zeros in front of sizes (size_spelling.h).
//
// Throws PublishError. The earlier publication is then unchanged; if the disk fails so badly during
// those last steps that they can't be undone, RecoverPublication (staging.h) does it later, and so
// does the next call. The same goes for a process that is killed.
BuildSummary BuildPublication(const BuildOptions& options);

// What a publication would be.
struct Preview {
  BuildSummary summary;
  std::string list;
  std::unique_ptr<const PublishedList> earlier;  // the list that it would replace; null if none
};

// The same up to the moment when something is written: all checks, and all payloads, which are
// discarded. Nothing is changed on any disk, and no lock is taken. Throws PublishError.
[[nodiscard]] Preview PreviewPublication(const BuildOptions& options);

// The same for the list of `removeFrom`, whose payloads needn't be there: only files that have
// changed since then are compressed. `output` must be the list's folder; it may be anywhere.
[[nodiscard]] Preview PreviewUpdate(const BuildOptions& options);

}  // namespace velmora::publish
