// The application's log category "works.tessel.corvel". Every documented log line goes through it with exactly
// its documented text. Levels: the system log's default and info levels map to qCInfo, debug to qCDebug,
// error to qCWarning and fault to qCCritical.
#pragma once

#include <QLoggingCategory>

Q_DECLARE_LOGGING_CATEGORY(lcCorvel)
