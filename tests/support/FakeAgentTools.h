// Stand-ins for the service managers the background agents talk to, installed as scripts on a test's PATH, and the
// file writing their fixtures need.
#pragma once

#include <QByteArray>
#include <QString>

class FakeAgentTools {
public:
    // "systemctl --user": logs each argument vector to systemctl.log beside itself, fails a verb when a file
    // fail-<verb> there holds the complaint, and keeps enabled timers as files enabled-<unit>. Like the real one it
    // will not enable a unit whose file is not in the user's folder.
    static QByteArray systemctl();
    // launchctl in the same way: loaded agents are files loaded-<label>.
    static QByteArray launchctl();

    // Writes content to path, making its folder; false when that fails.
    static bool writeFile(const QString& path, const QByteArray& content, bool executable = false);
};
