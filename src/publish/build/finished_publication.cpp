#include "publish/build/finished_publication.h"

#include "publish/build/complaints.h"
#include "publish/build/published_payload.h"
#include "publish/build/staging.h"
#include "publish/common/disk_text.h"
#include "publish/common/publish_error.h"
#include "publish/common/redirection.h"

namespace velmora::publish {

namespace fs = std::filesystem;

std::string WhyUnfinished(const fs::path& folder) {
  if (!HasUnfinishedReplacement(folder)) return {};
  return ShownPath(folder) +
         ": a build is moving files to their places, or was killed while it did; wait for its end, "
         "or run: velmora-publish recover " +
         ShownPath(folder);
}

void RequireFinished(const fs::path& folder) {
  const std::string why = WhyUnfinished(folder);
  if (!why.empty()) throw PublishError(why);
}

std::unique_ptr<const PublishedList> ReadFinishedList(const fs::path& folder,
                                                      const std::string& listName) {
  RequireFinished(folder);
  const fs::path file = folder / PathOf(listName);
  auto list = fs::exists(file) ? ReadPublishedList(file) : nullptr;
  if (list == nullptr) {
    throw PublishError(ShownPath(file) +
                       ": there is no list that patchers read to its end; name the folder of a "
                       "publication, and its list by --list NAME");
  }
  return list;
}

void RequireServable(const fs::path& folder, const PublishedList& list) {
  Complaints complaints;
  for (const FileRecord& record : list.files) {
    const fs::path file = folder / PayloadPlace(record);
    if (HasSizeOfPayload(file, record)) continue;
    complaints.Add(ShownPath(file), "is missing, or hasn't the size that the list says",
                   "build the publication again");
  }
  const fs::path redirection = folder / kRedirectionName;
  if (fs::exists(redirection)) {
    for (const RedirectionFlaw& flaw : RedirectionFlaws(ReadWholeFile(redirection))) {
      complaints.Add(ShownPath(redirection), flaw.what);
    }
  }
  complaints.ThrowIfAny("players would not find what they need");
}

}  // namespace velmora::publish
