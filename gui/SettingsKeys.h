#pragma once

// The groups and keys of the settings store, in one place. The store is the one named by the
// application's organisation and application names.
namespace gui::SettingsKeys {

// The main window.
inline constexpr char const* s_MainWindowGroup = "MainWindow";
inline constexpr char const* s_Size = "size";
inline constexpr char const* s_Position = "pos";
inline constexpr char const* s_Maximised = "fullscreen";
inline constexpr char const* s_SaveFilename = "saveFilename";
inline constexpr char const* s_ScrollToBottom = "ScrollToBottom";
inline constexpr char const* s_PauseOnError = "PauseOnError";
inline constexpr char const* s_CollapseCommands = "CollapseCommands";
inline constexpr char const* s_OnlyStringParameters = "OnlyStringParameters";
inline constexpr char const* s_ColumnHidden = "ColumnHidden%1"; // the column's number

// The colours of the highlight rules in force at exit, for the next quick highlights.
inline constexpr char const* s_FilterColorsGroup = "FilterColors";
inline constexpr char const* s_FilterColor = "FilterColor%1"; // numbered from 0

// The view filter dialog's own placement.
inline constexpr char const* s_ViewFilterDialogGroup = "ViewFilterDialog";

// The panes beside the table.
inline constexpr char const* s_AnalysisGroup = "Analysis";
inline constexpr char const* s_DetailsVisible = "DetailsPaneVisible";
inline constexpr char const* s_StatisticsVisible = "StatisticsPaneVisible";
inline constexpr char const* s_KeepWhilePaused = "KeepRecordsWhilePaused";
inline constexpr char const* s_ExportFolder = "ExportFolder";
inline constexpr char const* s_TimelineVisible = "TimelineVisible";
inline constexpr char const* s_TimelineLanes = "TimelineLanes"; // 0 thread, 1 session, 2 address

} // namespace gui::SettingsKeys
