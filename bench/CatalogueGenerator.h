// Writes a Homebrew catalogue of the real size (formula.json and cask.json) grown from the real records in the test
// data, so that the benchmarks measure the load people have. A given seed always gives the same bytes.
#pragma once

#include "foundation/Result.h"

#include <QString>
#include <QtGlobal>

class CatalogueGenerator {
public:
    static constexpr int realRecordCount = 7500;
    static constexpr quint32 defaultSeed = 20251121;

    // seedDataDir is the test data folder holding catalogue/formula-sample.json and its siblings.
    explicit CatalogueGenerator(QString seedDataDir, quint32 seed = defaultSeed);

    void setRecordCounts(int formulae, int casks);
    int formulaCount() const { return m_formulaCount; }
    int caskCount() const { return m_caskCount; }

    // Writes both files into folder, creating it when missing.
    Result<void> writeTo(const QString& folder) const;

    // Reads back what writeTo() wrote and fails on wrong record counts, repeated tokens or sizes far from the
    // real catalogue's, so that a broken generator never yields figures.
    Result<void> verify(const QString& folder) const;
    // writeTo() followed by verify(), as every benchmark wants its catalogue.
    Result<void> writeVerified(const QString& folder) const
    {
        const Result<void> written = writeTo(folder);
        return written ? verify(folder) : written;
    }

    static QString formulaFileName() { return QStringLiteral("formula.json"); }
    static QString caskFileName() { return QStringLiteral("cask.json"); }

private:
    QString m_seedDataDir;
    quint32 m_seed;
    int m_formulaCount = realRecordCount;
    int m_caskCount = realRecordCount;
};
