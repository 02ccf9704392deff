#include "app/Bundle.h"

#include <gmock/gmock.h>

#include "app/StartupError.h"
#include "platform/PropertyListWriter.h"
#include "platform/linux/PosixFiles.h"
#include "tests/support/TemporaryFolder.h"

namespace kv::test {
namespace {

std::string infoPlist(const PropertyList& root) {
  return writePropertyList(root, PropertyListEncoding::kXml);
}

class BundleTest : public testing::Test {
 protected:
  Bundle load() { return Bundle::load(files_, folder_.path().string() + "/"); }
  std::string failure() {
    try {
      load();
    } catch (const StartupError& error) {
      return error.what();
    }
    return "loaded";
  }
  TemporaryFolder folder_;
  PosixFiles files_;
};

TEST_F(BundleTest, HoldsItsScriptsInTheByteOrderOfTheirNames) {
  for (const char* name : {"b.js", "a.js", "Z.js", "ä.js", "10.js", "9.js"}) {
    writeFile(folder_ / ("Scripts/" + std::string(name)), name);
  }
  for (const char* name : {".a.js", "a.js~", "notes.txt", "a.mjs"}) {
    writeFile(folder_ / ("Scripts/" + std::string(name)), "throw 'not a script of the bundle'");
  }
  writeFile(folder_ / "Scripts/bom.js", "\xEF\xBB\xBFtext");
  const Bundle bundle = load();
  std::string texts;
  for (const auto& script : bundle.scripts) texts += script.text + " ";
  EXPECT_EQ(texts, "10.js 9.js Z.js a.js b.js text ä.js ");
  EXPECT_EQ(bundle.path, folder_.path().string());
  EXPECT_EQ(bundle.scripts.front().path, folder_ / "Scripts/10.js");
}

TEST_F(BundleTest, ReadsTheIdentifier) {
  writeFile(folder_ / "Scripts/host.js", "");
  EXPECT_EQ(load().identifier, std::nullopt);
  struct {
    std::string document;
    std::optional<std::string> identifier;
  } const kCases[] = {
      {infoPlist(PropertyList::Dictionary{{"CFBundleIdentifier", "com.example.Agent"}}),
       "com.example.Agent"},
      {infoPlist(PropertyList::Dictionary{}), std::nullopt},
      {infoPlist(PropertyList::Dictionary{{"CFBundleIdentifier", 5}}), std::nullopt},
  };
  for (const auto& one : kCases) {
    writeFile(folder_ / "Info.plist", one.document);
    EXPECT_EQ(load().identifier, one.identifier) << one.document;
  }
}

TEST_F(BundleTest, AFolderThatIsNoBundleSaysWhy) {
  const std::string path = folder_.path().string();
  EXPECT_THAT(failure(), testing::StartsWith(path + "/Scripts: No such file"));
  writeFile(folder_ / "Scripts/readme.txt", "");
  EXPECT_EQ(failure(), path + "/Scripts: holds no host script (*.js)");
  std::filesystem::create_directory(folder_ / "Scripts/host.js");
  EXPECT_EQ(failure(), path + "/Scripts/host.js: cannot be read");
  for (const std::string& document : {std::string("nonsense"), infoPlist(PropertyList::Array{})}) {
    writeFile(folder_ / "Info.plist", document);
    EXPECT_EQ(failure(), path + "/Info.plist: is no property list with a dictionary at its root");
  }
  for (const char* none : {"", "/no/such/folder", "/dev/null"}) {
    EXPECT_THROW(Bundle::load(files_, none), StartupError) << none;
  }
}

}  // namespace
}  // namespace kv::test
