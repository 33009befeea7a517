#include "IsolatedHome.h"

#include <QCoreApplication>

#include <gmock/gmock.h>

/// Runs the tests of one program, in a home of its own.
int main(int argc, char **argv)
{
    const IsolatedHome home;
    QCoreApplication application(argc, argv);
    testing::InitGoogleMock(&argc, argv);
    return RUN_ALL_TESTS();
}
