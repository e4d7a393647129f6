#include "FakeAgentTools.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>

QByteArray FakeAgentTools::systemctl()
{
    return QByteArray(R"SH(#!/bin/sh
here=$(dirname "$0")
printf '%s\n' "$*" >> "$here/systemctl.log"
[ "$1" = "--user" ] || { echo "not a user manager call" >&2; exit 2; }
verb=$2
eval "unit=\${$#}"
if [ -f "$here/fail-$verb" ]; then cat "$here/fail-$verb" >&2; exit 1; fi
case "$verb" in
daemon-reload) ;;
enable)
    [ -f "$XDG_CONFIG_HOME/systemd/user/$unit" ] || { echo "Failed to enable unit: Unit file $unit does not exist." >&2; exit 1; }
    touch "$here/enabled-$unit" ;;
disable)
    [ -f "$XDG_CONFIG_HOME/systemd/user/$unit" ] || { echo "Failed to disable unit: Unit file $unit does not exist." >&2; exit 1; }
    rm -f "$here/enabled-$unit" ;;
is-enabled)
    [ -f "$XDG_CONFIG_HOME/systemd/user/$unit" ] || { echo "Failed to get unit file state for $unit: No such file or directory" >&2; exit 1; }
    if [ -f "$here/enabled-$unit" ]; then echo enabled; else echo disabled; exit 1; fi ;;
*) echo "unexpected $verb" >&2; exit 2 ;;
esac
)SH");
}

QByteArray FakeAgentTools::launchctl()
{
    return QByteArray(R"SH(#!/bin/sh
here=$(dirname "$0")
printf '%s\n' "$*" >> "$here/launchctl.log"
verb=$1
if [ -f "$here/fail-$verb" ]; then cat "$here/fail-$verb" >&2; exit 5; fi
case "$verb" in
bootstrap)
    [ -f "$3" ] || { echo "Bootstrap failed: 2: No such file or directory" >&2; exit 5; }
    touch "$here/loaded-$(basename "$3" .plist)" ;;
bootout)
    [ -f "$here/loaded-${2##*/}" ] || { echo "Boot-out failed: 3: No such process" >&2; exit 3; }
    rm "$here/loaded-${2##*/}" ;;
print)
    [ -f "$here/loaded-${2##*/}" ] || { echo "Could not find service ${2##*/} in domain for port" >&2; exit 113; }
    echo "$2 = {" ;;
*) echo "unexpected $verb" >&2; exit 2 ;;
esac
)SH");
}

bool FakeAgentTools::writeFile(const QString& path, const QByteArray& content, bool executable)
{
    QDir().mkpath(QFileInfo(path).absolutePath());
    QFile file(path);
    if (!file.open(QIODevice::WriteOnly) || file.write(content) != content.size()) {
        return false;
    }
    return !executable || file.setPermissions(QFileDevice::ReadOwner | QFileDevice::WriteOwner | QFileDevice::ExeOwner);
}
