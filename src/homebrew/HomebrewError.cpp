#include "homebrew/HomebrewError.h"

QString HomebrewError::domain()
{
    return QStringLiteral("HomebrewError");
}

QString HomebrewError::description(Code code, const QString& text)
{
    switch (code) {
    case unableToInstall:
        return tr("Unable to install");
    case unableToUpdate:
        // Homebrew's own words are the most useful explanation, so they are shown untranslated and unchanged.
        return text;
    case unknown:
        return tr("Unknown error");
    case processNotAvailable:
        return tr("Homebrew executable not found");
    case unableToReadData:
        return tr("Unable to read data");
    }
    return tr("Unknown error");
}

Error HomebrewError::make(Code code, const QString& text)
{
    return Error(domain(), code, description(code, text));
}
