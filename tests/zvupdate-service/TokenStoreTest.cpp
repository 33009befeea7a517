#include "tools/zvupdate-service/TokenStore.h"

#include <gtest/gtest.h>

using namespace std::chrono_literals;

TEST(TokenStore, TokenIsGoodUntilItExpiresHoweverOftenItIsUsed)
{
    TokenStore tokens(60s);
    const auto start = TokenStore::TimePoint{} + 1h;
    const QString token = tokens.issue(start);
    EXPECT_EQ(token.size(), 32);
    EXPECT_TRUE(tokens.isGood(token, start));
    EXPECT_TRUE(tokens.isGood(token, start + 59s));
    EXPECT_FALSE(tokens.isGood(token, start + 60s));
    EXPECT_NE(tokens.issue(start), token);
    EXPECT_FALSE(tokens.isGood(token.toUpper() + QStringLiteral("x"), start));
    EXPECT_FALSE(tokens.isGood(QString(), start));
}

TEST(TokenStore, OldestTokenGoesWhenThereAreTooMany)
{
    TokenStore tokens(60s, 2);
    const auto start = TokenStore::TimePoint{} + 1h;
    const QString first = tokens.issue(start);
    const QString second = tokens.issue(start);
    const QString third = tokens.issue(start);
    EXPECT_FALSE(tokens.isGood(first, start));
    EXPECT_TRUE(tokens.isGood(second, start));
    EXPECT_TRUE(tokens.isGood(third, start));
}
