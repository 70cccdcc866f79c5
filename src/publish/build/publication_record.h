// The tool's own file in the folder of a publication: lines of text that say how the publication
// was made, and then which payloads the tool has put into the folder, ever.
#pragma once

#include <filesystem>
#include <optional>
#include <set>
#include <string>
#include <string_view>

#include "publish/build/payload.h"

namespace velmora::publish {

inline constexpr char kPublicationRecord[] = ".velmora-publish";

// Everything besides their files that payloads depend on, and the digest of the list that they were
// published with, so that the settings are valid for no other list.
[[nodiscard]] std::string SettingsText(const PayloadOptions& options, std::string_view list);

// The paths of payloads, relative to the folder, as PayloadPlace gives them.
using PayloadPaths = std::set<std::string>;

struct PublicationRecord {
  std::string settings;  // as of SettingsText; anything, if it isn't the tool's
  PayloadPaths payloads;

  [[nodiscard]] std::string Text() const;
};

// The record in `folder`; empty if there is none or it can't be read.
[[nodiscard]] PublicationRecord ReadPublicationRecord(const std::filesystem::path& folder);

// What the record in `folder` says about payloads, whichever list it belongs to; nothing if there
// is none.
[[nodiscard]] std::optional<PayloadOptions> ReadSettings(const std::filesystem::path& folder);

}  // namespace velmora::publish
