// The keys of the user defaults, each spelled once. Nothing registers default values: an unset boolean reads false, an
// unset number 0.
#pragma once

#include <string_view>

// The folders of the tree: paths. All but the pending one are reset to the default tree at each launch.
inline constexpr std::string_view key_velmFolderTemplates = "key_velmFolderTemplates";
inline constexpr std::string_view key_velmFolderGraphics = "key_velmFolderGraphics";
inline constexpr std::string_view key_velmFolderNodes = "key_velmFolderNodes";
inline constexpr std::string_view key_velmFolderPackages = "key_velmFolderPackages";
inline constexpr std::string_view key_velmFolderJobsCompleted = "key_velmFolderJobsCompleted";
inline constexpr std::string_view key_velmFolderJobsFailed = "key_velmFolderJobsFailed";
inline constexpr std::string_view key_velmFolderJobsPending = "key_velmFolderJobsPending";
/// Where a file destination without a place of its own writes: path, stored at each launch.
inline constexpr std::string_view key_velmFolderFallbackOutputPath = "velmFolderFallbackOutputPath";

// The processor.
inline constexpr std::string_view key_velmProcessorIsRunning = "velmProcessorIsRunning";         ///< boolean
inline constexpr std::string_view key_velmProcessorJobsCompleted = "velmProcessorJobsCompleted"; ///< integer
inline constexpr std::string_view key_velmProcessorJobsFailed = "velmProcessorJobsFailed";       ///< integer

// The looking at folders where events don't come; read when a stream is made.
inline constexpr std::string_view key_velmPollInterval = "velmPollInterval"; ///< seconds between two looks; absent: 2
/// Boolean: look, don't listen, for volumes whose events can't be trusted.
inline constexpr std::string_view key_velmAlwaysPoll = "velmAlwaysPoll";

// Confirmations: booleans.
inline constexpr std::string_view key_velmConfirmBeforeSavingTemplate = "velmConfirmBeforeSavingTemplate";
inline constexpr std::string_view key_velmConfirmBeforeDeletingOrderPending = "velmConfirmBeforeDeletingOrderPending";

// What the template editor used last: opacities are numbers, colors color codes.
inline constexpr std::string_view key_velmTemplateLastUsedOpacityBackground = "velmTemplateLastUsedOpacityBackground";
inline constexpr std::string_view key_velmTemplateLastUsedOpacityBorder = "velmTemplateLastUsedOpacityBorder";
inline constexpr std::string_view key_velmTemplateLastUsedOpacityText = "velmTemplateLastUsedOpacityText";
inline constexpr std::string_view key_velmTemplateLastUsedColorBackground = "velmTemplateLastUsedColorBackground";
inline constexpr std::string_view key_velmTemplateLastUsedColorBorder = "velmTemplateLastUsedColorBorder";
inline constexpr std::string_view key_velmTemplateLastUsedColorText = "velmTemplateLastUsedColorText";

// Windows.
inline constexpr std::string_view key_velmWindowIsVisibleProcessor = "velmWindowIsVisibleProcessor"; ///< boolean
inline constexpr std::string_view key_velmWindowIsVisibleEditorTemplate =
    "velmWindowIsVisibleEditorTemplate"; ///< boolean
/// Frame name of the processor window.
inline constexpr std::string_view key_velmWindowAutosaveProcessor = "com.kestrune.velmxml.window.autosave.processor";
inline constexpr std::string_view key_velmTabViewSelectedIndex = "key_velmTabViewSelectedIndex"; ///< integer

/// The version's long description, stored at each launch: text.
inline constexpr std::string_view key_prefLongVersionDescriptionString = "prefLongVersionDescriptionString";

// Saved folder sets: archived data, one key for each class of sets.
inline constexpr std::string_view key_savedFolderSets = "VELM_savedFolderSets";
inline constexpr std::string_view key_savedJobFolders = "VELM_savedJobFolders";
inline constexpr std::string_view key_savedPrintToFileSets = "VELM_savedPrintToFileSets";
