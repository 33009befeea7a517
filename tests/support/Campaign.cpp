#include "Campaign.h"

#include <QtGlobal>

#include <gtest/gtest.h>

#include <iostream>

bool Campaign::isLong()
{
    return !qEnvironmentVariableIsEmpty("ZVUPDATE_TORTURE");
}

int Campaign::rounds(int inTheLongForm, int inTheShortForm)
{
    return isLong() ? inTheLongForm : inTheShortForm;
}

void Campaign::tried(int variants)
{
    testing::Test::RecordProperty("variants", variants);
    std::cout << "[ variants ] " << variants << '\n';
}
