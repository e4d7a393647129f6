// Writes the benchmarks' real-size catalogue (formula.json, cask.json) into a folder, to look at or to load elsewhere.
#include "CatalogueGenerator.h"

#include <QCoreApplication>
#include <QStringList>
#include <cstdio>

int main(int argc, char* argv[])
{
    QCoreApplication application(argc, argv);
    const QStringList arguments = QCoreApplication::arguments();
    if (arguments.size() != 2) {
        std::fprintf(stderr, "usage: %s <folder>\n", qPrintable(arguments.value(0)));
        return 2;
    }
    const QString folder = arguments.at(1);
    const CatalogueGenerator generator(QStringLiteral(CORVEL_SEED_DATA_DIR));
    Result<void> outcome = generator.writeTo(folder);
    if (outcome) {
        outcome = generator.verify(folder);
    }
    if (!outcome) {
        std::fprintf(stderr, "generate-catalogue: %s\n", qPrintable(outcome.error().description()));
        return 1;
    }
    std::printf("%d formulae and %d casks written to %s\n", generator.formulaCount(), generator.caskCount(),
                qPrintable(folder));
    return 0;
}
