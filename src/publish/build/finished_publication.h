// Publications that are complete, for the commands that use one as it is.
#pragma once

#include <filesystem>
#include <memory>
#include <string>

#include "publish/common/published_list.h"

namespace velmora::publish {

// That a build is moving files to their places in `folder`, or was killed while it did, and the way
// out; empty if neither is so, also if there is no such folder.
[[nodiscard]] std::string WhyUnfinished(const std::filesystem::path& folder);

// Throws PublishError with that.
void RequireFinished(const std::filesystem::path& folder);

// The list of the publication in `folder`. Throws PublishError if there is none that patchers read
// to its end, or if a build is moving files there or was killed while it did.
[[nodiscard]] std::unique_ptr<const PublishedList> ReadFinishedList(
    const std::filesystem::path& folder, const std::string& listName);

// Throws PublishError unless players would find what they need in `folder`: all payloads of the
// list, by their sizes alone, and a redirection that leads somewhere, if there is one.
void RequireServable(const std::filesystem::path& folder, const PublishedList& list);

}  // namespace velmora::publish
