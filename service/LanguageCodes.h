#pragma once

#include "../platform/Export.h"

extern "C" {

/// The language codes by which the update service tags release notes, as UTF-8 text: initially
/// "zh-TW", "zh-CN" and "en". A host may point each to another constant string, from the thread
/// that runs its checks; every use reads the variable anew.
ZVUPDATE_EXPORT extern const char *kZVLanguageCode_zh_TW;
ZVUPDATE_EXPORT extern const char *kZVLanguageCode_zh_CN;
ZVUPDATE_EXPORT extern const char *kZVLanguageCode_EN;
}
