#include "search/SearchPredicates.h"

Predicate SearchPredicates::fromFormat(const QString& format, const QVariantList& arguments)
{
    // The formats are fixed and the text is only ever an argument, so parsing cannot fail on what people type.
    Result<Predicate> parsed = Predicate::parse(format, arguments);
    Q_ASSERT_X(parsed.ok(), "SearchPredicates", qPrintable(parsed ? QString() : parsed.error().description()));
    return parsed ? std::move(parsed).value() : Predicate::falsePredicate();
}

Predicate SearchPredicates::search(const QString& text)
{
    return Predicate::orPredicate(
        {name(text), token(text), description(text), fromFormat(QStringLiteral("kind.label CONTAINS[c] %@"), {text})});
}

Predicate SearchPredicates::name(const QString& text)
{
    return fromFormat(QStringLiteral("name CONTAINS[c] %@"), {text});
}

Predicate SearchPredicates::description(const QString& text)
{
    return fromFormat(QStringLiteral("desc CONTAINS[c] %@"), {text});
}

Predicate SearchPredicates::token(const QString& text)
{
    return fromFormat(QStringLiteral("token CONTAINS[c] %@"), {text});
}

Predicate SearchPredicates::installed()
{
    return fromFormat(QStringLiteral("installed == YES"));
}

Predicate SearchPredicates::available()
{
    return fromFormat(QStringLiteral("installed == NO"));
}

Predicate SearchPredicates::app()
{
    return fromFormat(QStringLiteral("kind.label == %@"), {QStringLiteral("App")});
}

Predicate SearchPredicates::font()
{
    return fromFormat(QStringLiteral("kind.label == %@"), {QStringLiteral("Font")});
}

Predicate SearchPredicates::outdated()
{
    return fromFormat(QStringLiteral("outdated == YES"));
}

Predicate SearchPredicates::defaultFilter()
{
    return installed();
}
