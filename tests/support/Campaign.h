#pragma once

#include <QtGlobal>

#include <gtest/gtest.h>

#include <iostream>

/// A test that tries many variants of one fault: all of them in the long form, which `./run
/// torture` asks for by setting ZVUPDATE_TORTURE, and otherwise so many that it takes about a
/// second.
namespace Campaign {

inline int rounds(int inTheLongForm, int inTheShortForm)
{
    return qEnvironmentVariableIsEmpty("ZVUPDATE_TORTURE") ? inTheShortForm : inTheLongForm;
}

/// Says how many variants were tried, on the test's output and in its record.
inline void tried(int variants)
{
    testing::Test::RecordProperty("variants", variants);
    std::cout << "[ variants ] " << variants << '\n';
}

} // namespace Campaign
