#include "zarn/arvlapp/external_data_info.h"

#include <gtest/gtest.h>
#include <json/json.h>

#include <string>

#include "support/rule_case.h"

namespace {

using arvl_test::parseJson;
using ZARN::ARVLAPP::ExternalDataInfo;

TEST(ExternalDataInfo, TakesItsThreeMembers) {
  ExternalDataInfo data;
  data.setExternalHandleJson(
      parseJson(R"({"handler":"mailbox","handler_type":"share","result":{"count":3}})"));
  EXPECT_EQ(data.getExternalHandleName(), "mailbox");
  EXPECT_EQ(data.getExternalHandleType(), "share");
  EXPECT_EQ(data.getExternalHandleResult(), parseJson(R"({"count":3})"));
}

TEST(ExternalDataInfo, KeepsAResultOfAnyType) {
  for (const char *result : {"\"text\"", "5", "[1,2]", "null", "true", "1.5"}) {
    ExternalDataInfo data;
    Json::Value element(Json::objectValue);
    element["result"] = parseJson(result);
    data.setExternalHandleJson(element);
    EXPECT_EQ(data.getExternalHandleResult(), parseJson(result));
  }
}

TEST(ExternalDataInfo, ReplacesAllFieldsEachTime) {
  ExternalDataInfo data;
  data.setExternalHandleJson(parseJson(R"({"handler":"h","handler_type":"t","result":1})"));
  data.setExternalHandleJson(parseJson("{}"));
  EXPECT_EQ(data.getExternalHandleName(), "");
  EXPECT_EQ(data.getExternalHandleType(), "");
  EXPECT_TRUE(data.getExternalHandleResult().isNull());
}

TEST(ExternalDataInfo, KeepsItsResultInPlaceWhenAssignedToItself) {
  ExternalDataInfo data;
  data.setExternalHandleJson(parseJson(R"({"result":{"a":1}})"));
  const Json::Value &member = data.getExternalHandleResult()["a"];
  const ExternalDataInfo &same = data;
  data = same;
  EXPECT_EQ(&data.getExternalHandleResult()["a"], &member);
}

TEST(ExternalDataInfo, PropagatesAConversionError) {
  ExternalDataInfo data;
  data.setExternalHandleJson(parseJson(R"({"handler":"h","handler_type":"t","result":1})"));
  EXPECT_THROW(data.setExternalHandleJson(parseJson(R"({"handler":"new","handler_type":[]})")),
               Json::LogicError);
  EXPECT_EQ(data.getExternalHandleName(), "new");
  EXPECT_EQ(data.getExternalHandleType(), "t");
}

}  // namespace
