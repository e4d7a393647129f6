// Why the analytics client refused to track something: no site domain, a domain that cannot be a host name, or a
// custom event that pretends to be a page view. Each case becomes an Error of the family "PKAnalyticsError".
#pragma once

#include "foundation/Error.h"

#include <QCoreApplication>

class PKAnalyticsError {
    Q_DECLARE_TR_FUNCTIONS(PKAnalyticsError)

public:
    enum Code {
        domainNotSet = 1,
        invalidDomain,
        eventIsPageview,
    };

    static QString domain();
    static QString description(Code code);
    static Error make(Code code);
};
