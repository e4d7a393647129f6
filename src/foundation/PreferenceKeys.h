// The names of the user's preferences. Code reads a preference where it needs it; nothing caches one.
#pragma once

#include <QString>

namespace PreferenceKeys {

inline const QString PersonasSelectedIndex = QStringLiteral("PersonasSelectedIndex");
inline const QString MainWindowRecentSearches = QStringLiteral("MainWindowRecentSearches");
inline const QString TableShowUpgradesAbove = QStringLiteral("TableShowUpgradesAbove");
inline const QString TableStyle = QStringLiteral("TableStyle");
inline const QString TableColumnSizing = QStringLiteral("TableColumnSizing");
inline const QString TranscriptFontStyle = QStringLiteral("TranscriptFontStyle");
inline const QString TranscriptPaneVisible = QStringLiteral("TranscriptPaneVisible");
inline const QString TranscriptPaneThickness = QStringLiteral("TranscriptPaneThickness");
inline const QString SettingsSelectedTabIndex = QStringLiteral("SettingsSelectedTabIndex");
inline const QString AllowDataCollection = QStringLiteral("AllowDataCollection");
inline const QString AllowAutomaticCrashReportsCollection = QStringLiteral("AllowAutomaticCrashReportsCollection");
inline const QString ReceiveBetaUpdates = QStringLiteral("ReceiveBetaUpdates");
inline const QString LastFastSyncTime = QStringLiteral("LastFastSyncTime");
inline const QString LastSyncTime = QStringLiteral("LastSyncTime");
inline const QString SyncOnAppLaunch = QStringLiteral("SyncOnAppLaunch");
inline const QString UpdateLastRun = QStringLiteral("UpdateLastRun");
inline const QString CleanupLastRun = QStringLiteral("CleanupLastRun");
inline const QString AutoremoveLastRun = QStringLiteral("AutoremoveLastRun");
inline const QString IsFirstRun = QStringLiteral("IsFirstRun");
inline const QString Appearance = QStringLiteral("Appearance");
inline const QString ShowWebsiteIcons = QStringLiteral("ShowWebsiteIcons");
inline const QString SuppressMoveToAlert = QStringLiteral("SuppressMoveToAlert");
inline const QString SuppressReinstallAlert = QStringLiteral("SuppressReinstallAlert");
inline const QString SuppressUpgradeAllAlert = QStringLiteral("SuppressUpgradeAllAlert");

} // namespace PreferenceKeys
