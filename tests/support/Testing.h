#pragma once

// What most tests need.
#include "TestFiles.h"
#include "WaitFor.h"

#include <QDir>
#include <QFileInfo>
#include <QTemporaryDir>

#include <gmock/gmock.h>
