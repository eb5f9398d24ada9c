#include "util/words.h"

#include <gmock/gmock.h>

#include "util/arguments.h"
#include "util/strings.h"

namespace {

using testing::ElementsAre;

TEST(Words, AnIntegerIsReadByItsLeadingDigitsInThirtyTwoBits) {
  EXPECT_EQ(util::integerOf("12abc"), 12);
  EXPECT_EQ(util::integerOf("-7"), -7);
  EXPECT_EQ(util::integerOf("abc"), 0);
  EXPECT_EQ(util::integerOf(""), 0);
  EXPECT_EQ(util::integerOf("4294967304"), 8);
}

TEST(Words, ALineThatEndsTooEarlyNamesTheWordsThatAreMissing) {
  const char* words[] = {"8"};
  const auto failure = util::missingWords("FPAdd", "wE wF", words);
  ASSERT_TRUE(failure);
  EXPECT_EQ(failure->message, "FPAdd: the line ends before wF (usage: FPAdd wE wF)");
  EXPECT_EQ(util::missingWords("X", "a b", {})->message,
            "X: the line ends before a b (usage: X a b)");
  EXPECT_FALSE(util::missingWords("-target", "family", words));
  EXPECT_FALSE(util::missingWords("-enable", "", {}));
}

TEST(Words, ALineOfThemHasNoControlCharacters) {
  const char* words[] = {"-label", "x\nentity y", "", "FPAdd"};
  EXPECT_EQ(util::joined(words), "-label x?entity y  FPAdd");
  EXPECT_EQ(util::joined({}), "");
}

TEST(Words, BitsForAValueHoldTheValueItself) {
  EXPECT_EQ(util::bitsForValue(0), 1);
  EXPECT_EQ(util::bitsForValue(1), 1);
  EXPECT_EQ(util::bitsForValue(7), 3);
  EXPECT_EQ(util::bitsForValue(8), 4);
  EXPECT_EQ(util::bitsForValue(4096), 13);
}

TEST(Strings, NamesCompareWithoutRegardToCaseAndWhole) {
  EXPECT_TRUE(util::caseInsensitiveEquals("-dontcareonreset", "-dontCareOnReset"));
  EXPECT_FALSE(util::caseInsensitiveEquals("-error", "-errors"));
  EXPECT_FALSE(util::caseInsensitiveEquals("@", "`"));  // 32 apart, but no letters
  EXPECT_EQ(util::conc("a", 3), "a3");
}

class Arguments : public testing::Test {
 protected:
  const char* words[7] = {"-name", "A", "-x", "1", "2", "-last", nullptr};
  Options options{words, words + 6};
};

TEST_F(Arguments, AWordBehindANameIsItsValue) {
  EXPECT_EQ(options.getArg("-name", "d"), "A");
  EXPECT_EQ(options.getArg("-NAME", "d"), "d");
  EXPECT_EQ(options.getArg("-last", "d"), "d");
  EXPECT_TRUE(options.has("-last"));
  EXPECT_FALSE(options.has("-none"));
  EXPECT_EQ(options.wordsBehind("-x"), 3);
  EXPECT_EQ(options.wordsBehind("-last"), 0);
  EXPECT_EQ(options.wordsBehind("-none"), 0);
}

TEST_F(Arguments, SeveralWordsAreTakenWhateverTheyAre) {
  EXPECT_THAT(options.getArgs("-x", 2, "d"), ElementsAre("1", "2"));
  EXPECT_THAT(options.getArgs("-x", 3, "d"), ElementsAre("1", "2", "-last"));
  EXPECT_THAT(options.getArgs("-none", 2, "d"), ElementsAre("d", "d"));
  EXPECT_THAT(options.getArgs("-x", 0, "d"), ElementsAre());
  EXPECT_THROW(options.getArgs("-x", 4, "d"), std::logic_error);
}

}  // namespace
