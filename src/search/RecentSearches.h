// The last five searches of each persona, newest first, kept in the preferences under one dictionary keyed by
// the persona's index ("0" Apps, "1" Scripts). A malformed stored value reads as no searches.
#pragma once

#include <QString>
#include <QStringList>

class Defaults;

class RecentSearches {
public:
    static constexpr int maximumCount = 5;

    explicit RecentSearches(Defaults& defaults);

    QStringList searches(int personaIndex) const;
    // Puts text first unless it is already listed (then nothing moves), keeping the newest five.
    void record(const QString& text, int personaIndex);
    // Forgets the searches of every persona.
    void clear();

private:
    Defaults& m_defaults;
};
