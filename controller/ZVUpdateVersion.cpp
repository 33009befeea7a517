#include "ZVUpdateVersion.h"

const unsigned char ZVUpdateVersionString[] = "@(#)PROGRAM:ZVUpdate  PROJECT:ZVUpdate-1\n";
const double ZVUpdateVersionNumber = 1.0;
