#include "logging/DDLogFileInfo.h"

#include <fmt/format.h>

#include <algorithm>
#include <string_view>
#include <utility>

#include "logging/LogPath.h"
#include "platform/PropertyList.h"

namespace kv {
namespace {

bool isPlainWord(std::string_view text) {
  const auto isPlain = [](char c) {
    return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') || c == '_';
  };
  return !text.empty() && std::all_of(text.begin(), text.end(), isPlain);
}

std::string quotedIfNeeded(std::string_view text) {
  if (isPlainWord(text)) return std::string(text);
  std::string quoted = "\"";
  for (const char c : text) {
    if (c == '"' || c == '\\') quoted += '\\';
    if (c == '\n') {
      quoted += "\\n";
    } else {
      quoted += c;
    }
  }
  return quoted += '"';
}

std::string inBraces(const PropertyList::Dictionary& entries, const std::string& indent) {
  std::string text = "{\n";
  for (const auto& [key, value] : entries) {
    const auto* inner = value.as<PropertyList::Dictionary>();
    text.append(indent).append("    ").append(key).append(" = ");
    text += inner ? inBraces(*inner, indent + "    ") : quotedIfNeeded(value.description());
    text += ";\n";
  }
  return text + indent + "}";
}

const char* nameOf(FileAttributes::Type type) {
  switch (type) {
    case FileAttributes::Type::kRegular:
      return "regular";
    case FileAttributes::Type::kFolder:
      return "folder";
    case FileAttributes::Type::kLink:
      return "link";
    case FileAttributes::Type::kOther:
      break;
  }
  return "other";
}

PropertyList describable(const std::optional<FileAttributes>& attributes) {
  if (!attributes) return "";
  return PropertyList::Dictionary{
      {"creationDate", attributes->creationDate},
      {"inode", attributes->inode},
      {"links", attributes->links},
      {"modificationDate", attributes->modificationDate},
      {"owner", std::uint64_t{attributes->owner}},
      {"permissions", fmt::format("{:04o}", attributes->permissions)},
      {"sizeBytes", attributes->sizeBytes},
      {"type", nameOf(attributes->type)},
  };
}

PropertyList describable(const std::optional<Date>& date) {
  return date ? PropertyList(*date) : PropertyList("");
}

/// An absent date is less than any.
int reverseCompared(const std::optional<Date>& one, const std::optional<Date>& other) {
  return one < other ? 1 : one > other ? -1 : 0;
}

}  // namespace

std::shared_ptr<DDLogFileInfo> DDLogFileInfo::logFileWithPath(std::string path) {
  return std::make_shared<DDLogFileInfo>(std::move(path));
}

DDLogFileInfo::DDLogFileInfo(std::string filePath)
    : DDLogFileInfo(std::move(filePath), Environment()) {}

DDLogFileInfo::DDLogFileInfo(std::string filePath, Environment environment)
    : environment_(std::move(environment)), filePath_(std::move(filePath)) {}

const std::string& DDLogFileInfo::fileName() {
  if (!fileName_) fileName_ = lastPathComponent(filePath_);
  return *fileName_;
}

const std::optional<FileAttributes>& DDLogFileInfo::fileAttributes() {
  if (!fileAttributes_) fileAttributes_ = environment_.files->attributes(filePath_);
  return fileAttributes_;
}

std::optional<Date> DDLogFileInfo::creationDate() {
  if (!creationDate_ && fileAttributes()) creationDate_ = fileAttributes_->creationDate;
  return creationDate_;
}

std::optional<Date> DDLogFileInfo::modificationDate() {
  if (!modificationDate_ && fileAttributes()) modificationDate_ = fileAttributes_->modificationDate;
  return modificationDate_;
}

std::uint64_t DDLogFileInfo::fileSize() {
  if (fileSize_ != 0) return fileSize_;
  const bool wereKept = fileAttributes_.has_value();
  if (fileAttributes()) fileSize_ = fileAttributes_->sizeBytes;
  if (fileSize_ == 0 && wereKept) {
    // The file may have grown since its attributes were read.
    if (const auto present = environment_.files->attributes(filePath_)) {
      fileSize_ = present->sizeBytes;
    }
  }
  return fileSize_;
}

double DDLogFileInfo::age() {
  const auto created = creationDate();
  return created ? (environment_.clock->now() - *created).count() : 0.0;
}

bool DDLogFileInfo::isArchived() {
  return hasExtendedAttributeWithName(kArchivedAttribute);
}

void DDLogFileInfo::setIsArchived(bool archived) {
  if (archived) {
    addExtendedAttributeWithName(kArchivedAttribute);
  } else {
    removeExtendedAttributeWithName(kArchivedAttribute);
  }
}

void DDLogFileInfo::reset() {
  fileName_.reset();
  fileAttributes_.reset();
  creationDate_.reset();
  modificationDate_.reset();
}

void DDLogFileInfo::renameFile(const std::string& newFileName) {
  if (newFileName == fileName()) return;
  const std::string newPath = joinedPath(folderOfPath(filePath_), newFileName);
  Files& files = *environment_.files;
  if (files.exists(newPath)) {
    const auto removed = files.remove(newPath);
    if (!removed.isDone()) {
      environment_.systemLog->write(fmt::format("DDLogFileInfo: Error deleting archive ({}): {}",
                                                fileName(), removed.reason));
    }
  }
  const auto moved = files.move(filePath_, newPath);
  if (!moved.isDone()) {
    environment_.systemLog->write(
        fmt::format("DDLogFileInfo: Error renaming file ({}): {}", fileName(), moved.reason));
  }
  filePath_ = newPath;
  reset();
}

bool DDLogFileInfo::hasExtendedAttributeWithName(const std::string& attributeName) {
  return environment_.files->findExtendedAttribute(filePath_, attributeName).isDone();
}

void DDLogFileInfo::addExtendedAttributeWithName(const std::string& attributeName) {
  const auto result = environment_.files->addExtendedAttribute(filePath_, attributeName);
  if (!result.isDone()) report("setxattr", attributeName, result);
}

void DDLogFileInfo::removeExtendedAttributeWithName(const std::string& attributeName) {
  const auto result = environment_.files->removeExtendedAttribute(filePath_, attributeName);
  if (result.kind == FileResult::Kind::kRefused) report("removexattr", attributeName, result);
}

void DDLogFileInfo::report(const char* call, const std::string& attributeName,
                           const FileResult& result) {
  environment_.systemLog->write(fmt::format("DDLogFileInfo: {}({}, {}): error = {}", call,
                                            attributeName, fileName(), result.reason));
}

bool DDLogFileInfo::isEqual(const DDLogFileInfo* other) const {
  return other != nullptr && other->filePath_ == filePath_;
}

int DDLogFileInfo::reverseCompareByCreationDate(DDLogFileInfo& other) {
  return reverseCompared(creationDate(), other.creationDate());
}

int DDLogFileInfo::reverseCompareByModificationDate(DDLogFileInfo& other) {
  return reverseCompared(modificationDate(), other.modificationDate());
}

std::string DDLogFileInfo::description() {
  return inBraces(
      {
          {"age", age()},
          {"creationDate", describable(creationDate())},
          {"fileAttributes", describable(fileAttributes())},
          {"fileName", fileName()},
          {"filePath", filePath_},
          {"fileSize", fileSize()},
          {"isArchived", isArchived()},
          {"modificationDate", describable(modificationDate())},
      },
      "");
}

}  // namespace kv
