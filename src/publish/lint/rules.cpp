#include "publish/lint/rules.h"

#include <algorithm>
#include <array>
#include <string>

namespace velmora::publish {
namespace {

constexpr Severity kError = Severity::kError;
constexpr Severity kWarning = Severity::kWarning;

constexpr std::array kRules = {
    LintRule{Rule::kLineTooLong, kError, "line over 511 bytes",
             "The reading ends here: patchers see neither this line nor any after it.",
             "Shorten the path, or split what the line holds."},
    LintRule{Rule::kNulByte, kError, "NUL byte",
             "The list ends here for patchers, in the middle of the line.",
             "Write the list as plain text of code page 932, not as UTF-16."},
    LintRule{Rule::kFieldTooLong, kError, "field over its limit",
             "A hash has at most 40 bytes, a size 31: patchers refuse the line.",
             "Make the list with the tool, or count the line's fields."},
    LintRule{Rule::kMisspelledKeyword, kError, "keyword that is nearly right",
             "FILE, DEL and EXE are read in capitals and with a space before the colon; "
             "anything else is silently ignored.",
             "Spell it \"FILE : \", \"DEL : \" or \"EXE : \"."},
    LintRule{Rule::kMeaninglessLine, kWarning, "line that means nothing",
             "Patchers silently ignore it.", "Remove it, unless it is a comment of yours."},
    LintRule{Rule::kCarriageReturn, kError, "carriage return within the line",
             "The field ends here, and so does all that is read of the line.",
             "End lines by LF or CR LF alone."},
    LintRule{Rule::kMissingField, kError, "field missing",
             "Fields from the first missing one on count as empty: without a transfer hash the "
             "download fails, without a content size the file is emptied at each start.",
             "Give path, transfer hash, transfer size, content hash and content size."},
    LintRule{Rule::kUnreadText, kWarning, "text that nothing reads",
             "What follows the last field is lost.", "Remove it."},
    LintRule{
        Rule::kTrailingSpace, kError, "space at the end of a field",
        "It belongs to the field: a hash never matches, and players' disks drop the space of a "
        "name.",
        "Write each comma directly after its field."},
    LintRule{Rule::kNothingNamed, kError, "nothing named",
             "A removal without a path removes nothing; a client without a name can't be started.",
             "Name it, or remove the line."},

    LintRule{Rule::kNotADigest, kError, "not a digest",
             "Hashes are compared as text with upper-case hexadecimal digits, 40 of SHA-1 or 32 of "
             "MD5. A transfer hash that never matches fails the download; a content hash brings "
             "the file anew whenever the cache doesn't know it, as at each re-check.",
             "Write the digest in capitals and whole."},
    LintRule{Rule::kNotASize, kError, "size that is no number from 0 to 2147483647",
             "Sizes are signed 32-bit numbers of bytes; anything else is read as another size.",
             "Keep files below 2 GiB and write the size in decimal digits."},
    LintRule{Rule::kLeadingZeros, kWarning, "transfer size with leading zeros",
             "The cache compares sizes as text, so players hash the file again for a new spelling.",
             "Write the number without them."},
    LintRule{Rule::kContentDiffers, kError, "transfer and content differ without compression",
             "What comes from the server is stored as it is: it can't be right by both.",
             "Repeat hash and size, or mark the path with \".compressed\"."},
    LintRule{Rule::kCompressedIsLarger, kWarning, "compressed, and not smaller for it",
             "Players download more than the file and expand it besides.", "Store it plain."},

    LintRule{Rule::kPathTooLong, kError, "path or name over 259 bytes", "Patchers refuse the line.",
             "Shorten the path."},
    LintRule{Rule::kCacheLineTooLong, kWarning, "line of the cache over 255 bytes",
             "A patcher's cache can't be read beyond this record's line: this file, and all whose "
             "paths come after it in byte order, are hashed at every start.",
             "Shorten the path: with SHA-1 and large files it has 149 bytes at most."},
    LintRule{Rule::kSpaceInPath, kWarning, "space in the path",
             "The cache can't hold the path, so players hash the file at every start.",
             "Rename the file without spaces."},
    LintRule{Rule::kTooManyCommas, kError, "more commas than fields need",
             "A path can't hold a comma: it ends there, and all fields move.",
             "Rename the file without commas."},
    LintRule{Rule::kControlCharacter, kError, "control character in the path",
             "Windows can't create such a file.", "Rename the file."},
    LintRule{
        Rule::kRequestTooLong, kError, "request over 259 bytes",
        "The settings' Data value, a slash, the path (a space or a byte outside of ASCII counts "
        "three) and \".compressed\" don't fit: patchers can't ask for the file.",
        "Shorten the path."},
    LintRule{Rule::kBackslashInCharacter, kWarning, "double-byte character that ends in 5C",
             "Patchers ask for a slash in its place, so the file must be elsewhere on the server.",
             "Rename the file, or let the tool build the publication."},
    LintRule{Rule::kLeavesInstallation, kError,
             "path that leaves the installation, or names something else",
             "Patchers trust the list: \"..\", a drive or colon, a separator in front, a device's "
             "name, and a dot or space at the end of a name reach what the list doesn't say.",
             "Name files relative to the installation."},
    LintRule{Rule::kNotInCodePage, kWarning, "not a text of code page 932",
             "Players' systems read names in code page 932 and show, or store, other ones.",
             "Rename the file in ASCII, or encode the list in code page 932."},
    LintRule{Rule::kForbiddenCharacter, kError, "character that no Windows name holds",
             "< > \" | * ? are not allowed in a name: the file can't be created.",
             "Rename the file."},
    LintRule{Rule::kPercentOrNumberSign, kError, "percent or number sign in the path",
             "A web server reads it as an escape or as the end of the path, and finds another file "
             "or none.",
             "Rename the file."},
    LintRule{
        Rule::kMarkWithinPath, kError, "\".compressed\" within the path",
        "The path is cut off there; what follows is lost, and players get a file of the shorter "
        "name.",
        "Put the mark at the very end, once."},
    LintRule{Rule::kSlashInPath, kError, "slash in the path",
             "Patchers create only folders in front of backslashes, and compare paths as text.",
             "Separate folders by backslashes."},
    LintRule{Rule::kNotPlainPath, kWarning, "path with empty or \".\" elements",
             "It is the same file on disk, but another one to cache, order and restart.",
             "Write the plain relative path."},

    LintRule{Rule::kSameLine, kWarning, "same line twice", "The first one counts.",
             "Remove the second."},
    LintRule{Rule::kSamePath, kError, "same path, other fields",
             "One of the two counts, usually the first; the other one is silently dropped.",
             "Keep one."},
    LintRule{Rule::kSamePatcherPath, kError, "path of the patcher's twice",
             "Both count: if they differ, the file is downloaded in turn at every start.",
             "Keep one."},
    LintRule{
        Rule::kSameFile, kError, "paths that differ only in case or spelling",
        "They are one file on players' disks: the one dealt with last stays, the other is never "
        "right.",
        "Keep one."},
    LintRule{Rule::kFileIsFolder, kError, "file and folder of one name",
             "Only one of them can exist: the run ends at the other.", "Rename one."},
    LintRule{
        Rule::kListedAndRemoved, kError, "listed, and removed as well",
        "Removals come first: each start deletes the file and downloads it again.",
        "Take it out of the removal, or out of the list. \"DEL : PATH, R\" removes only a file of "
        "that path, \"DEL : PATH\\\" only a folder."},
    LintRule{Rule::kSameRemoval, kWarning, "same removal twice", "The second one does nothing.",
             "Remove it."},
    LintRule{Rule::kSeveralClients, kWarning, "more than one client", "The last one counts.",
             "Keep one."},
    LintRule{Rule::kClientNotListed, kWarning, "client that isn't listed",
             "A name with a backslash in front is a program of the installation, which no line of "
             "the list brings there.",
             "List it, or drop the backslash for a program of the folder above."},
    LintRule{Rule::kNoFiles, kWarning, "no file listed",
             "Players' runs complete at once, whatever they have.",
             "Check that this is the list you mean."},

    LintRule{
        Rule::kRemovesUnlisted, kWarning, "removes a file that isn't listed",
        "It lies in the tree, a pattern or the name of a folder takes it, and the list doesn't "
        "bring it back.",
        "Make sure that players are meant to lose it."},
    LintRule{
        Rule::kRemovesEverything, kError, "removes the whole installation",
        "All its files, the settings included, and by any form but the pattern * the folders too, "
        "before each check.",
        "Name what shall go."},
    LintRule{Rule::kRemovesPatcher, kError, "removes the patcher or its settings",
             "Without the settings file no patcher finds its server again.",
             "Narrow the removal down."},
    LintRule{Rule::kRemovesPatcherFiles, kWarning, "removes what the patcher writes",
             "Its log, its cache, the copy that it runs from, or a file on its way to its place.",
             "Narrow the removal down."},
    LintRule{Rule::kWildcardWithoutMode, kError, "wildcard without the mode R",
             "Taken as the name of one file, which can't exist.",
             "Add the mode: \"DEL : PATTERN, R\"."},
    LintRule{Rule::kUnknownMode, kWarning, "mode that isn't R",
             "Only an R in front, in capitals, makes a pattern of the path; any other mode means "
             "nothing.",
             "Drop the mode, or write R."},
    LintRule{Rule::kRemovalTooLong, kWarning, "removal over 255 bytes",
             "A file of this path can be removed, a folder can't.", "Remove a folder above it."},
    LintRule{Rule::kMarkInRemoval, kWarning, "\".compressed\" in a removal",
             "It means nothing there: players never have a file of that name.",
             "Name the file without it."},
    LintRule{Rule::kRemovalInOtherMode, kError, "same removal in another mode",
             "Patchers tell removals apart by their paths alone: the second one is dropped.",
             "Keep one."},
    LintRule{
        Rule::kPatternWithoutMatch, kError, "pattern that never matches",
        "Patterns are compared with paths such as data\\old.dat. A slash, a colon, \".\", \"..\" "
        "or "
        "nothing in the place of a name never matches, and players keep what it should remove.",
        "Write it relative to the game's folder, with single backslashes."},

    LintRule{Rule::kSettingsWithoutRestart, kError, "settings file that brings no restart",
             "Patchers start again for new settings only if the list spells them "
             "\"./VelmoraUpdate.dat\".",
             "Spell it that way."},
    LintRule{Rule::kProgramWithoutRestart, kError, "patcher that brings no restart",
             "Patchers start again, and look at their own records first, only for the spelling "
             "\"VelmoraUpdate.exe\".",
             "Spell it that way."},
    LintRule{Rule::kPatcherNotFirst, kError, "patcher's record isn't in front",
             "Records are placed as they come, and a shorter path after a patcher's gets in front "
             "of it: old patchers then work through a list made for new ones.",
             "Let the patcher's records be the last lines, its program the very last."},
    LintRule{Rule::kPatcherNameInPath, kWarning, "path that holds the patcher's name",
             "It counts as the patcher's: it goes in front of all others, and one that holds "
             "\"VelmoraUpdate.exe\" restarts the patcher when it is replaced.",
             "Rename the file if it isn't the patcher's."},
    LintRule{Rule::kPatcherFile, kError, "file that patchers write themselves",
             "Log, cache, temporary copy and unfinished file never stay as the list wants them.",
             "Take it out of the list."},
    LintRule{Rule::kRedirection, kError, "redirection among the files",
             "A file enable.cdn below the data path sends every player to the address in it.",
             "Take it out of the list, and put it on the server by itself if that is meant."},

    LintRule{Rule::kPatcherNotAProgram, kError, "patcher that isn't a program",
             "Patchers replace themselves by it and start it. If the system can't, its players get "
             "no other update.",
             "Publish a whole program of Windows (i386 or x86-64) or Linux, or a script."},

    LintRule{Rule::kNoServer, kError, "settings that lead to no server",
             "Patchers with these settings can't update, not even to get better ones.",
             "Write a section [Setting] with ServerAddress=HOST, or BaseURL1=http://HOST/PATH."},
    LintRule{Rule::kNotAServerAddress, kError, "ServerAddress that isn't HOST or HOST:PORT",
             "Everything in front of its first colon is taken for the name of a host.",
             "Write the host alone, and the path as Data."},
    LintRule{Rule::kNotAPort, kError, "port that isn't a number from 1 to 65535",
             "It is read as far as it is a number, and cut to 16 bits.",
             "Write the port in digits, or leave it out with its colon."},
    LintRule{Rule::kMirrorBehindGap, kError, "mirror behind a gap",
             "Patchers read BaseURL1, BaseURL2 and so on up to the first that is missing or empty.",
             "Number the mirrors from 1 without a gap."},
    LintRule{Rule::kMirrorOverLimit, kError, "mirror beyond BaseURL10", "Patchers never read it.",
             "Keep ten mirrors."},
    LintRule{Rule::kNotAMirror, kError, "mirror that isn't http://HOST:PORT/PATH",
             "Patchers skip what isn't a URL. Of a URL they take host, port and path, and use "
             "plain HTTP whatever it says.",
             "Write http://HOST/PATH, or http://HOST:PORT/PATH."},
    LintRule{Rule::kMisspelledKey, kError, "key that is nearly right",
             "Patchers don't read it, and take what it should set as empty.",
             "Spell it right, or remove it."},
    LintRule{Rule::kUnknownKey, kWarning, "key that patchers don't read", "It does nothing.",
             "Remove it, unless another program reads it."},
    LintRule{Rule::kKeyElsewhere, kError, "key outside of the section [Setting]",
             "Patchers read the first section of this name and nothing else.", "Move it there."},
    LintRule{Rule::kSameKey, kWarning, "same key twice", "The first one counts.",
             "Remove the second."},
    LintRule{Rule::kSettingTooLong, kError, "value over 255 bytes", "Patchers cut it.",
             "Shorten it."},
    LintRule{Rule::kOtherDataPath, kError, "settings with another data path",
             "Their patchers ask for the list and all files below that path.",
             "Correct Data or the mirror's path, or give --data as it is meant."},
    LintRule{Rule::kOtherListName, kError, "settings with another list",
             "Their patchers ask for a list of that name, and hashlist.dat without DataFile.",
             "Correct DataFile, or give --list as it is meant."},
    LintRule{Rule::kNotARequestPath, kError, "path that patchers can't ask for",
             "It becomes part of each request as it is: there a backslash doesn't separate "
             "folders, ? and # end the path, a URL is none, and the list's name follows by itself.",
             "Write folders separated by slashes, such as /game."},
    LintRule{Rule::kByteOrderMark, kError, "byte order mark in front of the settings",
             "With it, Windows doesn't see the section in the first line, and only Windows reads "
             "UTF-16.",
             "Save the file without a mark, in ASCII or code page 932."},
    LintRule{Rule::kInformationNotAUrl, kWarning, "Information that isn't a URL",
             "The page in the patcher's window stays empty.",
             "Write http://HOST/PATH, or leave it out."},
    LintRule{Rule::kDoubleSlash, kWarning, "two slashes in a row",
             "Patchers put a slash behind the path. Many servers find nothing behind two.",
             "Remove one."},

    LintRule{Rule::kClientOfFolderAbove, kWarning, "client of the folder above",
             "Only a name with a backslash in front is a program of the installation. Players "
             "start one of the folder above, although the installation has one.",
             "Put a backslash in front, unless the folder above is meant."},
    LintRule{Rule::kNoSuchClient, kError, "client that isn't in the tree",
             "Unless players have such a program already, nothing starts after the update.",
             "Name a program of the tree, with a backslash in front: \\Game.exe."},
};

}  // namespace

std::span<const LintRule> LintRules() { return kRules; }

const LintRule& LintRuleOf(Rule id) {
  return *std::find_if(kRules.begin(), kRules.end(),
                       [id](const LintRule& rule) { return rule.id == id; });
}

std::optional<Rule> RuleOfNumber(std::string_view number) {
  for (const LintRule& rule : kRules) {
    if (std::to_string(rule.Number()) == number) return rule.id;
  }
  return std::nullopt;
}

RuleScope ScopeOf(Rule id) {
  if (id == Rule::kPatcherNotAProgram) return RuleScope::kTree;
  if (id == Rule::kRemovesUnlisted || id == Rule::kNoSuchClient) return RuleScope::kListAndTree;
  return id >= Rule::kNoServer && id <= Rule::kDoubleSlash ? RuleScope::kSettings
                                                           : RuleScope::kList;
}

bool IsAboutStart(Rule id) { return id >= Rule::kPatcherNotAProgram; }

const char* SeverityName(Severity severity) {
  return severity == Severity::kError ? "error" : "warning";
}

}  // namespace velmora::publish
