#pragma once

/// Everything a host needs: #include <ZVUpdate/ZVUpdate.h>

#include "controller/UpdateFiles.h"
#include "controller/ZVUpdateProc.h"
#include "controller/ZVUpdateProcDelegate.h"
#include "controller/ZVUpdateVersion.h"
#include "platform/files/InstallerLink.h"
#include "platform/settings/HostInstallation.h"
#include "preferences/UpdatePreferences.h"
#include "service/HttpFunctionURLEncode.h"
#include "service/LanguageCodes.h"
#include "transport/DownloadMode.h"
#include "transport/ZVMisc.h"
