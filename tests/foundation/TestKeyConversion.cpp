#include "foundation/KeyConversion.h"

#include <QTest>
#include <string>

class TestKeyConversion : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void fromSnakeCase_data();
    void fromSnakeCase();
    void toSnakeCase_data();
    void toSnakeCase();
};

void TestKeyConversion::fromSnakeCase_data()
{
    QTest::addColumn<QString>("key");
    QTest::addColumn<QString>("expected");

    const QList<std::pair<const char*, const char*>> pairs = {
        {"", ""},
        {"a", "a"},
        {"ALLCAPS", "ALLCAPS"},
        {"ALL_CAPS", "allCaps"},
        {"snake_case", "snakeCase"},
        {"one_2_three", "one2Three"},
        {"one2_three", "one2Three"},
        {"snake_Ćase", "snakeĆase"},
        {"snake_ćase", "snakeĆase"},
        {"alreadyCamelCase", "alreadyCamelCase"},
        {"__this_and_that", "__thisAndThat"},
        {"this__and__that", "thisAndThat"},
        {"this_and_that__", "thisAndThat__"},
        {"this_aNd_that", "thisAndThat"},
        {"_test_", "_test_"},
        {"_", "_"},
        {"___", "___"},
        {"🐧_🐟", "🐧🐟"},
        {"full_name", "fullName"},
        {"formula_files", "formulaFiles"},
        {"screen_saver", "screenSaver"},
        {"x86_64_linux", "x8664Linux"},
    };
    for (const auto& [key, expected] : pairs) {
        QTest::newRow(*key ? key : "(empty)") << QString::fromUtf8(key) << QString::fromUtf8(expected);
    }
}

void TestKeyConversion::fromSnakeCase()
{
    QFETCH(QString, key);
    QFETCH(QString, expected);

    QCOMPARE(KeyConversion::convertFromSnakeCase(key), expected);

    // The decoder's UTF-8 path must agree with the QString one, ASCII fast path and Unicode fallback alike.
    std::string buffer = "left over from an earlier key";
    const QByteArray utf8 = key.toUtf8();
    const std::string_view converted =
        KeyConversion::convertFromSnakeCase(std::string_view(utf8.constData(), std::size_t(utf8.size())), buffer);
    QCOMPARE(QString::fromUtf8(converted.data(), qsizetype(converted.size())), expected);
}

void TestKeyConversion::toSnakeCase_data()
{
    QTest::addColumn<QString>("key");
    QTest::addColumn<QString>("expected");

    const QList<std::pair<const char*, const char*>> pairs = {
        {"simpleOneTwo", "simple_one_two"},
        {"myURL", "my_url"},
        {"singleCharacterAtEndX", "single_character_at_end_x"},
        {"thisIsAnXMLProperty", "this_is_an_xml_property"},
        {"single", "single"},
        {"", ""},
        {"a", "a"},
        {"aA", "a_a"},
        {"version4Thing", "version4_thing"},
        {"partCAPS", "part_caps"},
        {"partCAPSLowerAGAIN", "part_caps_lower_again"},
        {"asdfĆqer", "asdf_ćqer"},
        {"already_snake_case", "already_snake_case"},
        {"dataPoint22", "data_point22"},
        {"dataPoint22Word", "data_point22_word"},
        {"_oneTwoThree", "_one_two_three"},
        {"oneTwoThree__", "one_two_three__"},
        {"🐧🐟", "🐧🐟"},
        {"fullName", "full_name"},
        {"screenSaver", "screen_saver"},
    };
    for (const auto& [key, expected] : pairs) {
        QTest::newRow(*key ? key : "(empty)") << QString::fromUtf8(key) << QString::fromUtf8(expected);
    }
}

void TestKeyConversion::toSnakeCase()
{
    QFETCH(QString, key);
    QFETCH(QString, expected);
    QCOMPARE(KeyConversion::convertToSnakeCase(key), expected);
}

QTEST_APPLESS_MAIN(TestKeyConversion)
#include "TestKeyConversion.moc"
