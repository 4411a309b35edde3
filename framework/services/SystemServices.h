#pragma once

/// The accessors that the host's system module (kvxsystem) exports. Each returns a service that
/// lives as long as the process; the caller does not release it.

#include "framework/services/IRunLoop.h"
#include "framework/services/ISignalHandler.h"
#include "framework/services/ModuleApi.h"

extern "C" {

KVX_MODULE_API KVX::IRunLoop* GetRunLoop();
KVX_MODULE_API KVX::ISignalHandler* GetSignalHandler();
}
