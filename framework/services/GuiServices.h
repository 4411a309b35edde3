#pragma once

/// The accessors that the host's graphics module (kvxgui) exports. Each returns a service that
/// lives as long as the process; the caller does not release it.

#include "framework/interfaces/IThemeManager.h"
#include "framework/services/IAlertPresenter.h"
#include "framework/services/IAlertService.h"
#include "framework/services/IGraphicsHelper.h"
#include "framework/services/ISystemShell.h"
#include "framework/services/IUrlOpener.h"
#include "framework/services/ModuleApi.h"

extern "C" {

KVX_MODULE_API KVX::IAlertService* GetAlertService();
KVX_MODULE_API KVX::ISystemShell* GetSystemShell();
KVX_MODULE_API KVX::IThemeManager* GetThemeManager();
KVX_MODULE_API KVX::IGraphicsHelper* GetGraphicsHelper();
}
