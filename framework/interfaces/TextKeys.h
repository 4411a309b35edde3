#pragma once

namespace Engine {

/// The user-visible texts of the plug-in's text table. The English text is the key, the fallback
/// and what a host language file maps to its translation; the plug-in registers each of them
/// once and looks it up each time it shows it. A host that must recognise a text it was shown
/// (an alert) compares it with the key's translation, never with the English words.
namespace TextKeys {

inline constexpr const char* kScope = "Sorvel";

inline constexpr const char* kRefresh = "Refresh";
inline constexpr const char* kUploadFailed = "Upload failed!";
inline constexpr const char* kSessionExpired = "Session expired. Please login again.";
inline constexpr const char* kLoginFailed =
    "Login failed. Please note that usernames and passwords are case sensitive.";
inline constexpr const char* kAddNewProduct = "-- Add a new Product --";
inline constexpr const char* kUntitled = "Untitled";
inline constexpr const char* kNoTitle = "[no title]";
inline constexpr const char* kTrackColumn = "Track";
inline constexpr const char* kFileColumn = "File";
inline constexpr const char* kStateColumn = "State";
inline constexpr const char* kRemove = "Remove";
inline constexpr const char* kAdd = "Add";
inline constexpr const char* kReplace = "Replace";
inline constexpr const char* kUploaded = "Uploaded";
inline constexpr const char* kInvalidFormat = "Invalid Format";
inline constexpr const char* kFormatNotSupported = "The file format is not supported (WAV 44.1 Khz expected).";
inline constexpr const char* kPercentUploaded = "%(1:1)%% uploaded";
inline constexpr const char* kUploadComplete = "Upload Complete";
inline constexpr const char* kUploadFailedState = "Upload Failed";
inline constexpr const char* kMultipleTracks = "Multiple Tracks Selected";

/// Every text of the table, in the order the plug-in registers them.
inline constexpr const char* kAll[] = {
    kRefresh,     kUploadFailed,   kSessionExpired, kLoginFailed,        kAddNewProduct,    kUntitled,
    kNoTitle,     kTrackColumn,    kFileColumn,     kStateColumn,        kRemove,           kAdd,
    kReplace,     kUploaded,       kInvalidFormat,  kFormatNotSupported, kPercentUploaded,  kUploadComplete,
    kUploadFailedState, kMultipleTracks,
};

} // namespace TextKeys
} // namespace Engine
