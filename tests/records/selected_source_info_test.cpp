#include "zarn/arvlapp/selected_source_info.h"

#include <gtest/gtest.h>
#include <json/value.h>

#include <list>
#include <string>

#include "support/rule_case.h"

namespace {

using arvl_test::parseJson;
using ZARN::ARVLAPP::SelectedSourceInfo;

using Names = std::list<std::string>;

Json::Value named(const Names &names) {
  Json::Value list(Json::arrayValue);
  for (const std::string &name : names) {
    Json::Value element(Json::objectValue);
    element["object"] = name;
    list.append(element);
  }
  return list;
}

std::string displayOf(const Names &folders, const Names &apps) {
  Json::Value payload(Json::objectValue);
  payload["backup_folders"] = named(folders);
  payload["backup_apps"] = named(apps);
  SelectedSourceInfo source;
  source.setSelectedSourceJson(payload);
  EXPECT_EQ(source.getSelectedFolders(), folders);
  EXPECT_EQ(source.getSelectedApps(), apps);
  return source.getDisplayString();
}

TEST(SelectedSourceInfo, ShowsBothListsInOneLine) {
  EXPECT_EQ(SelectedSourceInfo().getDisplayString(), "Folders: [], Apps: []");
  EXPECT_EQ(displayOf({"docs", "photos"}, {}), "Folders: [docs, photos], Apps: []");
  EXPECT_EQ(displayOf({}, {"mail"}), "Folders: [], Apps: [mail]");
  EXPECT_EQ(displayOf({"a, b", "c]"}, {"d", "d"}), "Folders: [a, b, c]], Apps: [d, d]");
}

TEST(SelectedSourceInfo, WritesASeparatorOnlyAfterText) {
  EXPECT_EQ(displayOf({"", "a", "b"}, {"", ""}), "Folders: [a, b], Apps: []");
  EXPECT_EQ(displayOf({"a", "", "b"}, {"a", ""}), "Folders: [a, , b], Apps: [a, ]");
}

TEST(SelectedSourceInfo, KeepsTheLastPayloadOnly) {
  SelectedSourceInfo source;
  source.setSelectedSourceJson(
      parseJson(R"({"backup_folders":[{"object":"a"}],"backup_apps":[{"object":"b"}]})"));
  source.setSelectedSourceJson(
      parseJson(R"({"backup_folders":[{"object":"c","more":1}],"backup_apps":[]})"));
  EXPECT_EQ(source.getDisplayString(), "Folders: [c], Apps: []");
}

TEST(SelectedSourceInfo, TreatsMissingMembersAsEmpty) {
  SelectedSourceInfo source;
  source.setSelectedSourceJson(
      parseJson(R"({"backup_folders":[{},{"object":null},{"object":5}]})"));
  EXPECT_EQ(source.getSelectedFolders(), (Names{"", "", "5"}));
  EXPECT_TRUE(source.getSelectedApps().empty());
  source.setSelectedSourceJson(parseJson("{}"));
  EXPECT_TRUE(source.getSelectedFolders().empty());
}

// Fills a record with a directory and an application, then with a payload that JsonCpp refuses.
std::string displayAfterRefused(const std::string &payload) {
  SelectedSourceInfo source;
  source.setSelectedSourceJson(
      parseJson(R"({"backup_folders":[{"object":"a"}],"backup_apps":[{"object":"b"}]})"));
  EXPECT_THROW(source.setSelectedSourceJson(parseJson(payload)), Json::LogicError) << payload;
  return source.getDisplayString();
}

TEST(SelectedSourceInfo, ClearsAndReadsTheDirectoriesBeforeTheApps) {
  EXPECT_EQ(displayAfterRefused("[1]"), "Folders: [], Apps: [b]");
  EXPECT_EQ(displayAfterRefused(R"({"backup_folders":[{"object":"c"},3]})"),
            "Folders: [c], Apps: [b]");
  EXPECT_EQ(displayAfterRefused(R"({"backup_folders":[],"backup_apps":[{"object":"d"},3]})"),
            "Folders: [], Apps: [d]");
}

}  // namespace
