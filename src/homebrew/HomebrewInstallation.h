// Where Homebrew lives (its prefix and brew executable) and which versions it and the companion tap have. The prefix
// candidates are resolved under a file-system root, "/" in production, so tests and the demo can bring their own.
#pragma once

#include <QByteArrayView>
#include <QMutex>
#include <QString>
#include <QStringList>
#include <optional>

namespace Homebrew {

class Installation {
public:
    explicit Installation(const QString& root = QStringLiteral("/"));
    Installation(const Installation&) = delete;
    Installation& operator=(const Installation&) = delete;

    // The process-wide installation; main() moves its root with --root DIR before anything runs.
    static Installation& shared();

    // The candidates in the order they are tried, before resolving them under the root. There is deliberately no
    // third one: not the classic /usr/local, not PATH, not a setting.
    static const QStringList& prefixCandidates();

    // Always absolute and clean. An empty or relative root is taken relative to the working directory.
    QString root() const;
    void setRoot(const QString& root);

    // Looked up afresh on every call, because Homebrew may be installed or removed while the application runs.
    std::optional<QString> prefix() const;
    // prefix + "/bin/brew", whether or not a file is there.
    std::optional<QString> brewPath() const;

    // The greatest tag name of Homebrew's checkout (resp. of the companion commands tap) in plain character
    // order, not version order: of 4.9.0 and 4.10.0 it is 4.9.0. None without a prefix or without readable tags.
    std::optional<QString> homebrewVersion() const;
    std::optional<QString> homebrewCommandsVersion() const;

    // The machine field of uname(2), e.g. "x86_64" or "arm64"; none when the call fails.
    static std::optional<QString> systemArchitecture();
    // The text of a raw machine field: strict UTF-8 with NULs trimmed from both ends; none when not UTF-8.
    static std::optional<QString> machineName(QByteArrayView field);

private:
    std::optional<QString> greatestTag(const QString& relativeTagsPath) const;

    mutable QMutex m_mutex;
    QString m_root;
};

} // namespace Homebrew
