#include "publish/build/plan.h"

#include <algorithm>
#include <utility>

#include "base/ascii.h"
#include "engine/reference_list.h"
#include "publish/build/complaints.h"
#include "publish/build/finished_publication.h"
#include "publish/build/list_text.h"
#include "publish/build/publication_record.h"
#include "publish/build/published_payload.h"
#include "publish/build/removals.h"
#include "publish/build/staging.h"
#include "publish/build/start_check.h"
#include "publish/build/tree_names.h"
#include "publish/common/disk_text.h"
#include "publish/common/list_path.h"
#include "publish/common/publish_error.h"
#include "publish/common/redirection.h"
#include "publish/common/removal_index.h"
#include "publish/common/shown_text.h"

namespace velmora::publish {
namespace {

namespace fs = std::filesystem;

// Whether it exists or not, and however it is spelled.
fs::path Canonical(const fs::path& path) {
  const fs::path canonical = platform::CanonicalPath(path);
  return canonical.has_filename() ? canonical : canonical.parent_path();
}

bool Holds(const fs::path& outerPath, const fs::path& innerPath) {
  const fs::path outer = PathOf(platform::NameKey(outerPath));
  const fs::path inner = PathOf(platform::NameKey(innerPath));
  return std::mismatch(outer.begin(), outer.end(), inner.begin(), inner.end()).first == outer.end();
}

// If one folder contained the other, the publication would publish itself or overwrite its source.
void RequireApart(const fs::path& tree, const fs::path& output) {
  const fs::path from = Canonical(tree);
  const fs::path to = Canonical(output);
  if (Holds(from, to) || Holds(to, from)) {
    throw PublishError("neither of the tree and the publication may contain the other: " +
                       ShownPath(from) + ", " + ShownPath(to));
  }
}

IgnoreRules RulesOf(const BuildOptions& options) {
  const fs::path ofTree = options.tree / kIgnoreName;
  const fs::path& file = options.ignoreFile.empty() ? ofTree : options.ignoreFile;
  const bool exists = platform::EntryKind(file) != fs::file_type::not_found;
  if (options.ignoreFile.empty() && !exists) return {};
  IgnoreRules rules(ReadWholeFile(file));
  // Rules that are in the tree under another name aren't published either.
  const fs::path inTree =
      platform::CanonicalPath(file).lexically_relative(platform::CanonicalPath(options.tree));
  rules.Add(TextOf(inTree));
  return rules;
}

// The list that removals are made from; null if there is none.
EarlierList ListToRemoveFrom(const BuildOptions& options) {
  if (options.removeFrom.empty()) return nullptr;
  const fs::path file = ListFile(options.removeFrom, options.listName);
  const fs::path own = options.output / PathOf(options.listName);
  if (Canonical(file) == Canonical(own) && !fs::exists(own)) return nullptr;
  if (fs::is_directory(options.removeFrom)) RequireFinished(options.removeFrom);
  EarlierList earlier = ReadPublishedList(file);
  if (earlier == nullptr) {
    throw PublishError(ShownPath(file) + ": not a list, or not one that patchers read to its end");
  }
  return earlier;
}

// Null if there is none.
EarlierList ListInOutput(const BuildOptions& options) {
  const fs::path file = options.output / PathOf(options.listName);
  if (!fs::exists(file) || fs::is_directory(file)) return nullptr;
  EarlierList list = ReadPublishedList(file);
  const bool isEmptied = list != nullptr && list->files.Count() == 0 && !options.allowEmpty;
  if (list == nullptr || isEmptied) {
    throw PublishError(
        ShownPath(file) +
        ": empty, or no list that patchers read to its end, so what players have isn't known. "
        "Restore it, or move it away if players shall keep all that they have");
  }
  return list;
}

// Null if no publication is to be reused.
EarlierList ListToReuse(const BuildOptions& options) {
  if (options.reuse.empty()) return nullptr;
  RequireFinished(options.reuse);
  const fs::path file = options.reuse / PathOf(options.listName);
  EarlierList list = fs::exists(file) ? ReadPublishedList(file) : nullptr;
  if (list == nullptr) {
    throw PublishError(ShownPath(file) +
                       ": there is no list that patchers read to its end, so --reuse finds no "
                       "publication; --list NAME names its list");
  }
  return list;
}

void CheckRedirection(const std::string& where, const std::string& text, Complaints& complaints) {
  for (const RedirectionFlaw& flaw : RedirectionFlaws(text)) complaints.Add(where, flaw.what);
}

// The text of the file that redirects players, if the build has to write it. One that stays where
// it is, or comes from another publication, is checked as well.
std::optional<std::string> Redirection(const BuildOptions& options, Complaints& complaints) {
  if (!options.redirection.empty()) {
    CheckRedirection("--cdn", options.redirection, complaints);
    return options.redirection;
  }
  const fs::path own = options.output / kRedirectionName;
  const fs::path other = options.reuse / kRedirectionName;
  const bool stays = fs::exists(own);
  const bool comes =
      !stays && options.takesRedirection && !options.reuse.empty() && fs::exists(other);
  if (!stays && !comes) return std::nullopt;
  const fs::path& file = stays ? own : other;
  const std::string text = ReadWholeFile(file);
  CheckRedirection(ShownPath(file), text, complaints);
  return comes ? std::optional(text) : std::nullopt;
}

// Files of the tree can't collide with each other in the output, but with what the tool puts there.
// The file that redirects is among what the linter finds.
void CheckOwnPlaces(const std::vector<SourceFile>& files, const std::string& listName,
                    Complaints& complaints) {
  for (const SourceFile& file : files) {
    FileRecord record;
    record.path = file.listPath;
    const fs::path place = PayloadPlace(record);
    const fs::path first = *place.begin();
    const auto isNamed = [key = platform::NameKey(first)](const std::string& name) {
      return key == platform::NameKey(PathOf(name));
    };
    const bool isTaken = isNamed(listName) || isNamed(Staging::kFolder) ||
                         isNamed(kPublicationRecord) ||
                         (isNamed(kRedirectionName) && place != first);
    if (!isTaken) continue;
    const char* const other = isNamed(listName) ? ", choose another --list" : "";
    complaints.Add(ShownPath(file.path),
                   "\"" + ShownText(platform::ListTextOf(first)) + "\" is taken in the publication",
                   std::string("rename it") + other + ", or leave it out with --ignore");
  }
}

// A name from the command line as the list has it.
std::string TypedName(const std::string& typed, NameEncoding encoding, Complaints& complaints) {
  const ListName name = ListNameOf(typed, encoding);
  if (name.isGuessed) complaints.Add(ShownPath(typed), kNameIsGuessed, kWaysOutOfGuess);
  if (!name.fault.empty()) {
    complaints.Add(ShownPath(typed), name.fault,
                   "perhaps \"" + ShownText(name.text) + "\" is meant");
  }
  if (name.text.starts_with(' ') || name.text.ends_with(' ')) {
    complaints.Add(ShownPath(typed), "begins or ends with a space, which no file's name does",
                   "leave the space out");
  }
  if (name.text.find(',') != std::string::npos) {
    complaints.Add(ShownPath(typed), "holds a comma, which ends what a patcher reads",
                   "rename the file; --remove-pattern can have ? in the place of the comma");
  }
  return name.text;
}

// The path as patchers come upon it, without what other tools take as a mark of the root.
std::string PlainPattern(const std::string& pattern) {
  const std::size_t end = pattern.find(';');
  const std::string rest =
      end == std::string::npos ? "" : ";" + PlainPattern(pattern.substr(end + 1));
  const std::string first = pattern.substr(0, end);
  std::string plain;
  for (const std::string_view element : PathElements(first)) {
    if (element.empty() || element == ".") continue;
    plain += (plain.empty() ? "" : "\\") + std::string(element);
  }
  return plain + rest;
}

std::vector<FileRecord> RequestedRemovals(const BuildOptions& options, Complaints& complaints) {
  std::vector<FileRecord> removals = options.removals;
  for (FileRecord& removal : removals) {
    removal.path = WithBackslashes(TypedName(removal.path, options.names, complaints));
    if (!IsPatternRemoval(removal)) continue;
    const std::string plain = PlainPattern(removal.path);
    if (NamesFolder(removal.path)) {
      complaints.Add(ShownText(removal.path), "a pattern takes files, and none has this name",
                     "add * for all files in the folder, or let --remove take the folder");
    } else if (NeverMatches(plain)) {
      complaints.Add(ShownText(removal.path), "a pattern that never matches",
                     "name it relative to the game's folder");
    }
    removal.path = plain;
  }
  return removals;
}

}  // namespace

// Patchers don't escape the list's name in their request.
void RequireListName(const std::string& name) {
  const bool isPlain = name.find_first_of("/\\ ?#%") == std::string::npos && name != "." &&
                       name != ".." && !HasControl(name);
  const bool isTaken =
      name == Staging::kFolder || name == kPublicationRecord || name == kRedirectionName;
  if (name.empty() || !isPlain || isTaken || name.find(kCompressedMark) != std::string::npos) {
    throw PublishError("the list can't have the name \"" + ShownPath(name) + "\"");
  }
}

void RequireUsable(const BuildOptions& options) {
  RequireApart(options.tree, options.output);
  RequireListName(options.listName);
}

PublicationPlan PlanPublication(const BuildOptions& options) {
  Complaints complaints;
  PublicationPlan plan;
  plan.files =
      ScanTree(options.tree, RulesOf(options), options.names, RequestedPath(options), complaints);
  CheckOwnPlaces(plan.files, options.listName, complaints);
  plan.redirection = Redirection(options, complaints);
  plan.earlier = ListToRemoveFrom(options);
  plan.removals =
      Removals(RequestedRemovals(options, complaints), plan.earlier.get(), plan.files, complaints);
  plan.clientExe = WithBackslashes(TypedName(options.clientExe, options.names, complaints));
  plan.start = CheckStart(plan.files, plan.clientExe, options, complaints);
  complaints.ThrowIfAny();
  if (plan.files.empty() && !options.allowEmpty) {
    throw PublishError(
        ShownPath(options.tree) +
        ": holds no file to publish. Is it complete? If so, --allow-empty allows it");
  }
  EarlierList inOutput = ListInOutput(options);
  EarlierList reused = ListToReuse(options);
  const bool isReusedEarlier = !plan.earlier && !inOutput;
  for (const EarlierList* const list : {&plan.earlier, &inOutput, &reused}) {
    if (!*list) continue;
    plan.spelling.Add(**list);
    if (list == &reused && !isReusedEarlier) continue;
    RequireFewRemoved(**list, plan.files, options.maxRemovedPercent);
  }
  plan.removesWhatIsGone = plan.earlier != nullptr;
  if (!plan.earlier) plan.earlier = std::move(inOutput ? inOutput : reused);
  // Refuses what a list can't express before the long work begins.
  static_cast<void>(ListText({}, plan.removals, plan.clientExe));
  return plan;
}

}  // namespace velmora::publish
