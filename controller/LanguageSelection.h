#pragma once

#include <QString>

/// The language code for a locale identifier such as "zh_TW": the current value of one of the
/// kZVLanguageCode variables.
QString languageCodeForLocale(const QString &identifier);
