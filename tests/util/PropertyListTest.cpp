#include <gtest/gtest.h>

#include <string>

#include "util/HdiutilAttach.h"
#include "util/PropertyListReader.h"

namespace {

const char kHeader[] =
    "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n"
    "<!DOCTYPE plist PUBLIC \"-//Apple//DTD PLIST 1.0//EN\" \"http://www.apple.com/DTDs/PropertyList-1.0.dtd\">\n"
    "<plist version=\"1.0\">\n";

std::string Plist(const std::string& body) { return kHeader + body + "\n</plist>\n"; }

// One system entity of hdiutil's answer.
std::string Entity(const std::string& device, const std::string& hint) {
  return "<dict><key>content-hint</key><string>" + hint + "</string><key>dev-entry</key><string>" + device +
         "</string><key>potentially-mountable</key><true/><key>unmapped-content-hint</key><string>" + hint +
         "</string></dict>";
}

std::string Attached(const std::string& entities) {
  return Plist("<dict>\n\t<key>system-entities</key>\n\t<array>" + entities + "</array>\n</dict>");
}

TEST(PropertyListReaderTest, ReadsEveryKindWithItsTextAndKeyOrder) {
  std::string error;
  const auto top = ReadPropertyList(
      Plist("<dict><!-- a comment --><key>z &amp; a</key><string>&lt;&#x41;&#66;&gt; &#x1F600;</string>"
            "<key>n</key><integer>-12</integer><key>r</key><real>1.5</real><key>d</key><date>2026-11-25T00:00:00Z</date>"
            "<key>b</key><data>AAEC</data><key>t</key><true/><key>f</key><false></false>"
            "<key>list</key><array><string/><array/><dict/></array></dict>"),
      &error);
  ASSERT_TRUE(top) << error;
  ASSERT_EQ(top->kind, PropertyListNode::Kind::kDict);
  std::string keys;
  for (const auto& entry : top->keyed) keys += entry.first + "|";
  EXPECT_EQ(keys, "z & a|n|r|d|b|t|f|list|");
  EXPECT_EQ(top->Find("z & a")->text, "<AB> \xF0\x9F\x98\x80");
  EXPECT_EQ(top->Find("n")->kind, PropertyListNode::Kind::kInteger);
  EXPECT_EQ(top->Find("n")->text, "-12");
  EXPECT_EQ(top->Find("r")->kind, PropertyListNode::Kind::kReal);
  EXPECT_EQ(top->Find("d")->kind, PropertyListNode::Kind::kDate);
  EXPECT_EQ(top->Find("b")->text, "AAEC");
  EXPECT_TRUE(top->Find("t")->boolean);
  EXPECT_FALSE(top->Find("f")->boolean);
  EXPECT_EQ(top->Find("f")->kind, PropertyListNode::Kind::kBool);
  const PropertyListNode* list = top->Find("list");
  ASSERT_EQ(list->items.size(), 3u);
  EXPECT_EQ(list->items[1].kind, PropertyListNode::Kind::kArray);
  EXPECT_EQ(list->items[2].kind, PropertyListNode::Kind::kDict);
  EXPECT_EQ(top->Find("missing"), nullptr);
  EXPECT_EQ(list->Find("n"), nullptr);
}

TEST(PropertyListReaderTest, RefusesWhatIsNotAWellFormedList) {
  const std::string bad[] = {
      "",
      "hdiutil: attach failed - No such file or directory",
      Plist("<dict><key>a</key></dict>"),
      Plist("<dict><string>no key</string></dict>"),
      Plist("<dict><key>a</key><string>open"),
      Plist("<array><string>a<b>c</b></string></array>"),
      Plist("<string>&nbsp;</string>"),
      Plist("<string>&#0;</string>"),
      Plist("<string>&#x110000;</string>"),
      Plist("<string>&amp</string>"),
      Plist("<set><string>a</string></set>"),
      Plist("<string>a</string><string>b</string>"),
      Plist("<true>yes</true>"),
      Plist("<dict/>") + "trailing words",
      kHeader,
  };
  for (const std::string& xml : bad) {
    std::string error;
    EXPECT_FALSE(ReadPropertyList(xml, &error)) << xml;
    EXPECT_FALSE(error.empty()) << xml;
  }
}

TEST(HdiutilAttachTest, FindsTheWholeDiskByItsKeysWhereverItStands) {
  struct Case {
    const char* what;
    std::string plist;
    std::string disk;  // empty: refused
  };
  const Case cases[] = {
      {"a raw image: one entity", Attached(Entity("/dev/disk5", "")), "/dev/disk5"},
      {"slices before the whole disk",
       Attached(Entity("/dev/disk12s1", "EFI") + Entity("/dev/disk12s2", "Apple_HFS") +
                Entity("/dev/disk12", "GUID_partition_scheme")),
       "/dev/disk12"},
      {"an entity without dev-entry is passed over",
       Attached("<dict><key>content-hint</key><string>x</string></dict>" + Entity("/dev/disk3", "")), "/dev/disk3"},
      {"a dev-entry that is no string is passed over",
       Attached("<dict><key>dev-entry</key><integer>4</integer></dict>" + Entity("/dev/disk4", "")), "/dev/disk4"},
      {"slices only", Attached(Entity("/dev/disk7s1", "Apple_HFS")), ""},
      {"no entities", Attached(""), ""},
      {"two whole disks", Attached(Entity("/dev/disk8", "") + Entity("/dev/disk9", "")), ""},
      {"no system-entities key", Plist("<dict><key>other</key><array/></dict>"), ""},
      {"system-entities that is no array", Plist("<dict><key>system-entities</key><string>/dev/disk2</string></dict>"), ""},
      {"names that only look like disks",
       Attached(Entity("/dev/disk", "") + Entity("/dev/rdisk2", "") + Entity("/dev/disk2x", "") + Entity("disk2", "")), ""},
      {"the usual output instead of the property list", "/dev/disk5          \t                               \t\n", ""},
  };
  for (const Case& c : cases) {
    std::string error;
    EXPECT_EQ(AttachedWholeDisk(c.plist, &error), c.disk) << c.what;
    EXPECT_EQ(error.empty(), !c.disk.empty()) << c.what << ": " << error;
  }
}

}  // namespace
