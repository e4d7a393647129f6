// The filters that the search field's suggestions and the command line stand for, built from the catalogue's format
// strings with the typed text bound as an argument, so no text can change a filter's shape.
#pragma once

#include "catalogue/Predicate.h"

#include <QString>

class SearchPredicates {
public:
    // Any of name, token, description or kind label contains text, ignoring case. A script has no kind label, so
    // for scripts that last alternative matches nothing rather than failing.
    static Predicate search(const QString& text);
    static Predicate name(const QString& text);
    static Predicate description(const QString& text);
    static Predicate token(const QString& text);

    static Predicate installed();
    static Predicate available();
    static Predicate app();
    static Predicate font();
    static Predicate outdated();

    // What a table shows while no search is active: its installed records.
    static Predicate defaultFilter();

private:
    static Predicate fromFormat(const QString& format, const QVariantList& arguments = {});
};
