#include "activities/TranscriptError.h"

QString TranscriptError::domain()
{
    return QStringLiteral("TranscriptError");
}

QString TranscriptError::description(Code code)
{
    switch (code) {
    case unableToWriteData:
        return tr("Unable to write data");
    }
    return {};
}

Error TranscriptError::make(Code code)
{
    return Error(domain(), code, description(code));
}
