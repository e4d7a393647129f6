// Opens installer packages the way the desktop opens a double-clicked file: "open" on macOS, "xdg-open" elsewhere.
// Their exit status tells whether a handler accepted the file.
#pragma once

#include "operations/PackageOpener.h"

#include <QCoreApplication>

class SystemPackageOpener : public PackageOpener {
    Q_DECLARE_TR_FUNCTIONS(SystemPackageOpener)

public:
    // program: the opener to run with the file as its one argument; by default the desktop's own.
    explicit SystemPackageOpener(QString program = defaultProgram());

    // /usr/bin/open on macOS, else xdg-open from PATH; empty when there is none.
    static QString defaultProgram();

    QString program() const { return m_program; }

    // Runs the opener and waits for its verdict. One that is still running after a while has handed the file to a
    // handler in the foreground, which is success; it is left running.
    Result<void> open(const QString& path) override;

private:
    QString m_program;
};
