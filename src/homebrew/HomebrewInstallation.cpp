#include "homebrew/HomebrewInstallation.h"

#include <QDir>
#include <QFileInfo>
#include <QMutexLocker>
#include <QStringDecoder>
#include <algorithm>
#include <sys/utsname.h>

namespace Homebrew {

namespace {

QString absoluteRoot(const QString& root)
{
    return QDir::cleanPath(QDir(root.isEmpty() ? QStringLiteral(".") : root).absolutePath());
}

} // namespace

Installation::Installation(const QString& root)
    : m_root(absoluteRoot(root))
{}

Installation& Installation::shared()
{
    static Installation installation;
    return installation;
}

const QStringList& Installation::prefixCandidates()
{
    static const QStringList candidates{QStringLiteral("/opt/homebrew"), QStringLiteral("/usr/local/homebrew")};
    return candidates;
}

QString Installation::root() const
{
    QMutexLocker lock(&m_mutex);
    return m_root;
}

void Installation::setRoot(const QString& root)
{
    const QString absolute = absoluteRoot(root);
    QMutexLocker lock(&m_mutex);
    m_root = absolute;
}

std::optional<QString> Installation::prefix() const
{
    const QString base = root();
    for (const QString& candidate : prefixCandidates()) {
        const QString path = QDir::cleanPath(base + candidate);
        // isDir() follows symbolic links, so a link to a directory counts and a plain file does not.
        if (QFileInfo(path).isDir()) {
            return path;
        }
    }
    return std::nullopt;
}

std::optional<QString> Installation::brewPath() const
{
    const auto found = prefix();
    if (!found) {
        return std::nullopt;
    }
    return *found + QStringLiteral("/bin/brew");
}

std::optional<QString> Installation::homebrewVersion() const
{
    return greatestTag(QStringLiteral("/.git/refs/tags"));
}

std::optional<QString> Installation::homebrewCommandsVersion() const
{
    return greatestTag(QStringLiteral("/Library/Taps/tesselworks/homebrew-corvel-cmd/.git/refs/tags"));
}

std::optional<QString> Installation::greatestTag(const QString& relativeTagsPath) const
{
    const auto found = prefix();
    if (!found) {
        return std::nullopt;
    }
    // Unsorted and compared by QString's operator<: QDir's own name sorting is not the plain character order.
    QStringList names =
        QDir(*found + relativeTagsPath)
            .entryList(QDir::AllEntries | QDir::Hidden | QDir::System | QDir::NoDotAndDotDot, QDir::Unsorted);
    if (names.isEmpty()) {
        return std::nullopt;
    }
    return *std::max_element(names.cbegin(), names.cend());
}

std::optional<QString> Installation::systemArchitecture()
{
    struct utsname name {};
    if (uname(&name) != 0) {
        return std::nullopt;
    }
    return machineName(QByteArrayView(name.machine, sizeof name.machine));
}

std::optional<QString> Installation::machineName(QByteArrayView field)
{
    QStringDecoder decoder(QStringDecoder::Utf8,
                           QStringConverter::Flag::Stateless | QStringConverter::Flag::ConvertInitialBom);
    QString text = decoder.decode(field);
    if (decoder.hasError()) {
        return std::nullopt;
    }
    const auto isNul = [](QChar c) { return c.unicode() == 0; };
    const auto first = std::find_if_not(text.cbegin(), text.cend(), isNul);
    const auto last = std::find_if_not(text.crbegin(), text.crend(), isNul).base();
    return first < last ? QString(first, last - first) : QString();
}

} // namespace Homebrew
