#include "ControllerTest.h"

#include "../../controller/LanguageSelection.h"

using namespace Qt::StringLiterals;

namespace {

class Language : public ControllerTest
{
public:
    ~Language() override
    {
        kZVLanguageCode_zh_TW = "zh-TW";
        kZVLanguageCode_zh_CN = "zh-CN";
        kZVLanguageCode_EN = "en";
    }
};

TEST_F(Language, IsDecidedByTheRegionOfTheLocale)
{
    for (const QString &locale : {u"zh_CN"_s, u"zh-Hans_CN"_s, u"zh-Hant_CN"_s, u"en_CN"_s})
        EXPECT_EQ(languageCodeForLocale(locale), u"zh-CN") << qPrintable(locale);
    for (const QString &locale : {u"zh_TW"_s, u"zh-Hant_TW"_s, u"zh-Hans_TW"_s, u"en_TW"_s})
        EXPECT_EQ(languageCodeForLocale(locale), u"zh-TW") << qPrintable(locale);
    for (const QString &locale : {u"zh_HK"_s, u"zh-Hant"_s, u"fr_FR"_s, u"zh_cn"_s, u"zh_tw"_s,
                                  u"CN_en"_s, u"en"_s, u"N"_s, QString()})
        EXPECT_EQ(languageCodeForLocale(locale), u"en") << qPrintable(locale);
}

TEST_F(Language, HasTheCodesThatTheHostHasChosen)
{
    kZVLanguageCode_zh_TW = "tw";
    kZVLanguageCode_zh_CN = "cn";
    kZVLanguageCode_EN = "英";
    EXPECT_EQ(languageCodeForLocale(u"zh_TW"_s), u"tw");
    EXPECT_EQ(languageCodeForLocale(u"zh_CN"_s), u"cn");
    EXPECT_EQ(languageCodeForLocale(u"fr_FR"_s), u"英");
}

TEST_F(Language, OfTheNotesIsLookedUpInTheLatestReply)
{
    EXPECT_EQ(controller->getUpdateMessageWithLang(u"en"_s), std::nullopt);
    service.setOffer({.tokenOk = false});
    check();
    EXPECT_EQ(controller->getUpdateMessageWithLang(u"zh-TW"_s), u"zh-TW notes");
    EXPECT_EQ(controller->getUpdateMessageWithLang(u"zh-CN"_s), std::nullopt);
    EXPECT_EQ(controller->getUpdateMessageWithLang(u"fr"_s), u"en notes");
    EXPECT_EQ(controller->getUpdateMessageWithLang(std::nullopt), std::nullopt);
    service.setOffer({.ok = false});
    check();
    EXPECT_EQ(controller->getUpdateMessageWithLang(u"zh-TW"_s), std::nullopt);
}

} // namespace
