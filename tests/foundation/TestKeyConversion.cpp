#include "foundation/KeyConversion.h"

#include <QTest>
#include <string>

// Both reference tables: a key and what it converts to.
static void addRows(std::initializer_list<std::pair<const char*, const char*>> rows)
{
    QTest::addColumn<QString>("key");
    QTest::addColumn<QString>("expected");
    for (const auto& [key, expected] : rows) {
        QTest::newRow(*key ? key : "(empty)") << QString::fromUtf8(key) << QString::fromUtf8(expected);
    }
}

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
    addRows({
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
    });
}

void TestKeyConversion::fromSnakeCase()
{
    QFETCH(QString, key);
    QFETCH(QString, expected);

    QCOMPARE(KeyConversion::convertFromSnakeCase(key), expected);

    // The decoder's UTF-8 path must agree with the QString one, ASCII fast path and Unicode fallback alike.
    std::string buffer = "left over from an earlier key";
    const std::string utf8 = key.toStdString();
    QCOMPARE(QUtf8StringView(KeyConversion::convertFromSnakeCase(utf8, buffer)).toString(), expected);
}

void TestKeyConversion::toSnakeCase_data()
{
    addRows({
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
    });
}

void TestKeyConversion::toSnakeCase()
{
    QFETCH(QString, key);
    QFETCH(QString, expected);
    QCOMPARE(KeyConversion::convertToSnakeCase(key), expected);
}

QTEST_APPLESS_MAIN(TestKeyConversion)
#include "TestKeyConversion.moc"
