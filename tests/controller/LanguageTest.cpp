#include "ControllerTest.h"

#include "../../controller/LanguageSelection.h"

#include <utility>

using namespace Qt::StringLiterals;

namespace {

TEST(Language, IsDecidedByTheRegionOfTheLocale)
{
    const char *const former = std::exchange(kZVLanguageCode_EN, "host's");
    for (const QString &locale : {u"zh_CN"_s, u"zh-Hans_CN"_s, u"zh-Hant_CN"_s, u"en_CN"_s})
        EXPECT_EQ(languageCodeForLocale(locale), u"zh-CN") << qPrintable(locale);
    for (const QString &locale : {u"zh_TW"_s, u"zh-Hant_TW"_s, u"zh-Hans_TW"_s, u"en_TW"_s})
        EXPECT_EQ(languageCodeForLocale(locale), u"zh-TW") << qPrintable(locale);
    for (const QString &locale : {u"zh_HK"_s, u"zh-Hant"_s, u"fr_FR"_s, u"zh_cn"_s, u"zh_tw"_s,
                                  u"CN_en"_s, u"en"_s, u"N"_s, QString()})
        EXPECT_EQ(languageCodeForLocale(locale), u"host's") << qPrintable(locale);
    kZVLanguageCode_EN = former;
}

TEST_F(ControllerTest, LooksNotesUpInTheLatestReply)
{
    EXPECT_EQ(controller->getUpdateMessageWithLang(u"en"_s), std::nullopt);
    service.setOffer({.tokenOk = false});
    check();
    EXPECT_EQ(controller->getUpdateMessageWithLang(u"zh-TW"_s), u"zh-TW notes");
    service.setOffer({.ok = false});
    check();
    EXPECT_EQ(controller->getUpdateMessageWithLang(u"zh-TW"_s), std::nullopt);
}

} // namespace
