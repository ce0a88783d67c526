#include <cstdlib>
#include <string>

#include <gtest/gtest.h>

#include "velt/config.h"

namespace velt::test {
namespace {

class EnvReferenceTest : public testing::Test {
 protected:
  EnvReferenceTest() {
    setenv("HOME", "/h", 1);
    setenv("A", "alpha", 1);
    setenv("EMPTY", "", 1);
    setenv("SPACE D", "blank", 1);
    unsetenv("NOPE");
    unsetenv("A${B");
  }
};

TEST_F(EnvReferenceTest, AReferenceBecomesTheVariablesValue) {
  EXPECT_EQ(VELTreplaceEnvValue("${HOME}/a"), "/h/a");
  EXPECT_EQ(VELTreplaceEnvValue("a/${HOME}"), "a//h");
  EXPECT_EQ(VELTreplaceEnvValue("${HOME}"), "/h");
}

TEST_F(EnvReferenceTest, SeveralReferencesAreExpandedInOrder) {
  EXPECT_EQ(VELTreplaceEnvValue("${A}${HOME}-${A}"), "alpha/h-alpha");
  EXPECT_EQ(VELTreplaceEnvValue("x${NOPE}y${A}z"), "x${NOPE}yalphaz");
}

TEST_F(EnvReferenceTest, AReferenceToAnUnsetVariableStays) {
  EXPECT_EQ(VELTreplaceEnvValue("${NOPE}/a"), "${NOPE}/a");
}

TEST_F(EnvReferenceTest, AReferenceToAnEmptyVariableStays) {
  EXPECT_EQ(VELTreplaceEnvValue("a${EMPTY}b"), "a${EMPTY}b");
}

TEST_F(EnvReferenceTest, TextWithoutReferencesStays) {
  EXPECT_EQ(VELTreplaceEnvValue(""), "");
  EXPECT_EQ(VELTreplaceEnvValue("plain"), "plain");
  EXPECT_EQ(VELTreplaceEnvValue("$"), "$");
  EXPECT_EQ(VELTreplaceEnvValue("{HOME}"), "{HOME}");
  EXPECT_EQ(VELTreplaceEnvValue("}{"), "}{");
}

TEST_F(EnvReferenceTest, OnlyTheBracedFormIsAReference) {
  EXPECT_EQ(VELTreplaceEnvValue("$HOME"), "$HOME");
  EXPECT_EQ(VELTreplaceEnvValue("%HOME%"), "%HOME%");
  EXPECT_EQ(VELTreplaceEnvValue("$ {HOME}"), "$ {HOME}");
  EXPECT_EQ(VELTreplaceEnvValue("$(HOME)"), "$(HOME)");
}

TEST_F(EnvReferenceTest, AReferenceWithoutAnEndStays) {
  EXPECT_EQ(VELTreplaceEnvValue("a${HOME"), "a${HOME");
  EXPECT_EQ(VELTreplaceEnvValue("${"), "${");
  EXPECT_EQ(VELTreplaceEnvValue("}${HOME"), "}${HOME");
  EXPECT_EQ(VELTreplaceEnvValue("${A}${HOME"), "alpha${HOME");
}

TEST_F(EnvReferenceTest, TheEmptyReferenceStays) {
  EXPECT_EQ(VELTreplaceEnvValue("${}"), "${}");
  EXPECT_EQ(VELTreplaceEnvValue("a${}b${A}"), "a${}balpha");
}

TEST_F(EnvReferenceTest, ANestedReferenceIsReadUpToTheFirstBrace) {
  setenv("B", "beta", 1);

  EXPECT_EQ(VELTreplaceEnvValue("${A${B}}"), "${A${B}}");

  setenv("A${B", "odd", 1);

  EXPECT_EQ(VELTreplaceEnvValue("${A${B}}"), "odd}");
}

TEST_F(EnvReferenceTest, WhatWasPutInIsNotScannedAgain) {
  setenv("LOOP", "${LOOP}x${A}", 1);
  setenv("HALF", "${", 1);

  EXPECT_EQ(VELTreplaceEnvValue("${LOOP}"), "${LOOP}x${A}");
  EXPECT_EQ(VELTreplaceEnvValue("${HALF}A}"), "${A}");
}

TEST_F(EnvReferenceTest, ADollarInFrontOfAReferenceStays) {
  EXPECT_EQ(VELTreplaceEnvValue("$${A}"), "$alpha");
}

TEST_F(EnvReferenceTest, NamesAreTakenAsTheyStand) {
  EXPECT_EQ(VELTreplaceEnvValue("${SPACE D}"), "blank");
  EXPECT_EQ(VELTreplaceEnvValue("${ A }"), "${ A }");
  EXPECT_EQ(VELTreplaceEnvValue("${a}"), "${a}");
}

TEST_F(EnvReferenceTest, TheTextBehindTheLastReferenceIsKept) {
  EXPECT_EQ(VELTreplaceEnvValue("${A} and more"), "alpha and more");
  EXPECT_EQ(VELTreplaceEnvValue("${A}}"), "alpha}");
}

TEST_F(EnvReferenceTest, LongValuesAndManyReferencesArePutIn) {
  setenv("LONG", std::string(100'000, 'v').c_str(), 1);
  std::string many;
  std::string expected;
  for (int i = 0; i < 1000; ++i) {
    many += "${A},";
    expected += "alpha,";
  }

  EXPECT_EQ(VELTreplaceEnvValue("<${LONG}>"), "<" + std::string(100'000, 'v') + ">");
  EXPECT_EQ(VELTreplaceEnvValue(many), expected);
}

TEST_F(EnvReferenceTest, UnfinishedReferencesInPlentyAreKept) {
  std::string text;
  for (int i = 0; i < 20'000; ++i) text += "${";

  EXPECT_EQ(VELTreplaceEnvValue(text), text);
}

}  // namespace
}  // namespace velt::test
