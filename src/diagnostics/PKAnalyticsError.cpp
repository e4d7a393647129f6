#include "diagnostics/PKAnalyticsError.h"

QString PKAnalyticsError::domain()
{
    return QStringLiteral("PKAnalyticsError");
}

QString PKAnalyticsError::description(Code code)
{
    switch (code) {
    case domainNotSet:
        return tr("The analytics domain is not set");
    case invalidDomain:
        return tr("The analytics domain is not a valid host name");
    case eventIsPageview:
        return tr("A custom event cannot be named \"pageview\"");
    }
    return tr("Unknown analytics error");
}

Error PKAnalyticsError::make(Code code)
{
    return Error(domain(), code, description(code));
}
