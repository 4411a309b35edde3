#pragma once

/// The accessors that the host's system module (kvxsystem) exports. Each Get accessor returns a
/// service that lives as long as the process; the caller does not release it.

#include "framework/core/Types.h"
#include "framework/core/UID.h"
#include "framework/services/IFileSystem.h"
#include "framework/services/IFileTypeRegistry.h"
#include "framework/services/ILocaleManager.h"
#include "framework/services/INativeThread.h"
#include "framework/services/IObjectTable.h"
#include "framework/services/IPlugInManager.h"
#include "framework/services/IRunLoop.h"
#include "framework/services/ISignalHandler.h"
#include "framework/services/ISystem.h"
#include "framework/services/ModuleApi.h"

extern "C" {

KVX_MODULE_API KVX::IRunLoop* GetRunLoop();
KVX_MODULE_API KVX::ISignalHandler* GetSignalHandler();

KVX_MODULE_API KVX::ISystem* GetSystem();
KVX_MODULE_API KVX::IPlugInManager* GetPlugInManager();
KVX_MODULE_API KVX::IFileSystem* GetFileSystem();
KVX_MODULE_API KVX::IFileTypeRegistry* GetFileTypeRegistry();
KVX_MODULE_API KVX::IObjectTable* GetObjectTable();
KVX_MODULE_API KVX::ILocaleManager* GetLocaleManager();

/// A new, not yet started thread called `name` (UTF-8; the system keeps at most 15 bytes, so a
/// longer name is cut after the last whole character that fits). The caller owns the reference.
/// Returns null for a null or empty name. Any thread.
KVX_MODULE_API KVX::INativeThread* CreateNativeThread(const char* name);

/// The 32-bit FNV-1a hash of `length` bytes at `data`, stored in `*hash`: fast and well spread,
/// for hash tables and quick comparisons. It is not cryptographic: anyone can make inputs that
/// collide, so it must never guard against tampering. kInvalidArgument for a null `hash`, or
/// null data with a non-zero length. Any thread.
KVX_MODULE_API KVX::tresult Hash(const void* data, KVX::uint64 length, KVX::uint32* hash);

/// Stores a new random identifier (version 4, variant 1: 122 random bits from the kernel's
/// random source) in `*uid`. kInvalidArgument for a null `uid`; kUnexpected when the random
/// source fails, with `*uid` untouched. Any thread.
KVX_MODULE_API KVX::tresult CreateUID(KVX::UID* uid);
}
