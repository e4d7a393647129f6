#include "webicons/CssSelector.h"
#include "webicons/HtmlDocument.h"

#include <QFile>
#include <QTest>

namespace {

// How an element is named in the expectations: its tag, then its id, or its href, or its text.
QString describe(const HtmlElement& element)
{
    if (!element.id().isEmpty()) {
        return element.tagName() + u'#' + element.id();
    }
    if (const std::optional<QString> href = element.attribute(u"href")) {
        return element.tagName() + u'(' + *href + u')';
    }
    return element.tagName() + u':' + element.text().simplified();
}

QStringList describe(const QList<const HtmlElement*>& elements)
{
    QStringList names;
    for (const HtmlElement* element : elements) {
        names.append(describe(*element));
    }
    return names;
}

} // namespace

class TestCssSelector : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void initTestCase();
    void matching_data();
    void matching();
    void parseErrors_data();
    void parseErrors();
    void deeplyNestedPages();

private:
    std::optional<HtmlDocument> m_page;
};

void TestCssSelector::initTestCase()
{
    QFile file(QStringLiteral(CORVEL_TEST_DATA_DIR "/webicons/project-home.html"));
    QVERIFY(file.open(QIODevice::ReadOnly));
    m_page.emplace(HtmlDocument::parse(file.readAll()));
}

void TestCssSelector::matching_data()
{
    QTest::addColumn<QString>("selector");
    QTest::addColumn<QStringList>("expected"); // in document order

    const QStringList allIcons{"link#fav", "link(/static/apple-touch-icon.png)", "link(static/favicon-32x32.png)",
                               "link(//cdn.skylark.example/favicon-16x16.png)"};
    const QStringList links = allIcons + QStringList{"link(/site.webmanifest)", "link(/static/safari-pinned-tab.svg)",
                                                     "link(/static/site.css)"};
    const QStringList anchors{"a(/docs)", "a(https://blog.skylark.example/)"};
    const QStringList paragraphs{"p:Build sites fast.", "p:© Skylark"};

    QTest::newRow("type") << "link" << links;
    QTest::newRow("type in upper case") << "LINK" << links;
    QTest::newRow("id") << "#main" << QStringList{"div#main"};
    QTest::newRow("id is case-sensitive") << "#MAIN" << QStringList{};
    QTest::newRow("id and classes") << "div#main.container.wide" << QStringList{"div#main"};
    QTest::newRow("class") << ".item" << QStringList{"li#first", "li#second"};
    QTest::newRow("two classes") << ".item.active" << QStringList{"li#first"};
    QTest::newRow("class is case-sensitive") << ".ITEM" << QStringList{};
    QTest::newRow("class is a whole word") << ".ite" << QStringList{};
    QTest::newRow("presence") << "[sizes]" << allIcons.mid(1);
    QTest::newRow("presence, attribute name in upper case") << "[SIZES]" << allIcons.mid(1);
    QTest::newRow("equals is exact") << "link[rel=icon]" << allIcons.mid(2);
    QTest::newRow("equals, quoted") << "[color=\"#5bbad5\"]" << QStringList{"link(/static/safari-pinned-tab.svg)"};
    QTest::newRow("equals ignoring case") << "[rel='shortcut icon' i]" << QStringList{"link#fav"};
    QTest::newRow("equals with the s flag") << "[rel='shortcut icon' s]" << QStringList{};
    QTest::newRow("word") << "link[rel~=icon]" << allIcons.mid(2);
    QTest::newRow("word ignoring case") << "link[rel~=icon i]" << QStringList{"link#fav", allIcons[2], allIcons[3]};
    QTest::newRow("word with a space never matches") << "[data-kind~=\"touch big\"]" << QStringList{};
    QTest::newRow("empty word never matches") << "[data-kind~='']" << QStringList{};
    QTest::newRow("dash match, prefix") << "[lang|=en]"
                                        << QStringList{"html:" + m_page->root().text().simplified(), "a(/docs)"};
    QTest::newRow("dash match, whole value") << "[hreflang|=en]" << QStringList{"a(https://blog.skylark.example/)"};
    QTest::newRow("dash match needs the dash") << "[lang|=e]" << QStringList{};
    QTest::newRow("prefix") << "a[href^='https:']" << QStringList{"a(https://blog.skylark.example/)"};
    QTest::newRow("empty prefix never matches") << "[href^='']" << QStringList{};
    QTest::newRow("suffix") << "link[href$=\".png\"]" << allIcons.mid(1);
    QTest::newRow("suffix ignoring case") << "link[href$=\".PNG\" i]" << allIcons.mid(1);
    QTest::newRow("substring") << "[href*=favicon]" << QStringList{"link#fav", allIcons[2], allIcons[3]};
    QTest::newRow("substring is case-sensitive") << "[href*=FAVICON]" << QStringList{};
    QTest::newRow("substring ignoring case")
        << "[href*=FAVICON i]" << QStringList{"link#fav", allIcons[2], allIcons[3]};
    QTest::newRow("child") << "ul > li > a" << anchors;
    QTest::newRow("child without spaces") << "ul>li>a" << anchors;
    QTest::newRow("child, not a grandchild") << "div > a" << QStringList{};
    QTest::newRow("descendant") << "div a" << anchors;
    QTest::newRow("descendant, ancestor must differ") << "a a" << QStringList{};
    QTest::newRow("mixed combinators") << "#main > ul .item.active > a" << QStringList{"a(/docs)"};
    // The child step must be retried above the first matching ancestor.
    QTest::newRow("child below a distant ancestor") << "body > div li" << QStringList{"li#first", "li#second"};
    QTest::newRow("universal child") << "* > b" << QStringList{"b:fast"};
    QTest::newRow("list in document order") << "footer p, section p" << paragraphs;
    QTest::newRow("list without repeats") << "p, .note, p" << paragraphs;
    QTest::newRow("head links by relation") << "head > link[rel=manifest]" << QStringList{"link(/site.webmanifest)"};
    QTest::newRow("escaped id") << "#\\6d ain" << QStringList{"div#main"};
    QTest::newRow("escaped character") << "#mai\\n" << QStringList{"div#main"};
    QTest::newRow("whitespace around") << "  \tli#second \n" << QStringList{"li#second"};
    QTest::newRow("nothing in scripts or comments") << "[href*=not-an-icon], [href*=commented]" << QStringList{};
}

void TestCssSelector::matching()
{
    QFETCH(QString, selector);
    QFETCH(QStringList, expected);

    const Result<CssSelector> parsed = CssSelector::parse(selector);
    QVERIFY2(parsed.ok(), qPrintable(parsed.ok() ? QString() : parsed.error().description()));
    const QList<const HtmlElement*> found = m_page->querySelectorAll(parsed.value());
    QCOMPARE(describe(found), expected);

    // One element at a time, through its ancestors, gives the same answer as the whole-document pass.
    for (const auto& element : m_page->elements()) {
        QCOMPARE(parsed.value().matches(*element), found.contains(element.get()));
    }
}

void TestCssSelector::parseErrors_data()
{
    QTest::addColumn<QString>("selector");
    QTest::addColumn<int>("code");
    QTest::addColumn<QString>("message"); // a part of the description

    const int empty = CssSelector::empty;
    const int unexpected = CssSelector::unexpectedCharacter;
    const int unterminated = CssSelector::unterminated;
    const int unsupported = CssSelector::unsupported;

    QTest::newRow("nothing") << "" << empty << "The selector is empty";
    QTest::newRow("trailing comma") << "a," << empty << "Expected a selector after \",\" at position 2 in \"a,\"";
    QTest::newRow("leading comma") << ",a" << unexpected << "Expected a selector at position 0 in \",a\", found \",\"";
    QTest::newRow("dangling child combinator")
        << "div >" << unexpected << "Expected a selector at the end of \"div >\"";
    QTest::newRow("doubled child combinator") << "a > > b" << unexpected << "found \">\"";
    QTest::newRow("adjacent sibling") << "a + b" << unsupported << "The combinator \"+\" at position 2";
    QTest::newRow("pseudo-class") << "a:hover" << unsupported << "The pseudo-class \":hover\" in \"a:hover\"";
    QTest::newRow("pseudo-element") << "p::before" << unsupported << "\"::before\"";
    QTest::newRow("attribute without end") << "[href" << unterminated << "lacks its \"]\"";
    QTest::newRow("attribute without end after value") << "[href=x" << unterminated << "lacks its \"]\"";
    QTest::newRow("unclosed string") << "[href='x]" << unterminated << "The string at position 6";
    QTest::newRow("string broken by a line") << "[href='x\n']" << unterminated << "is not closed";
    QTest::newRow("two values") << "[href=x y]" << unexpected << "Unexpected \"y\" at position 8";
    QTest::newRow("flag without space") << "[href=x i]i" << unexpected << "Unexpected \"i\"";
    QTest::newRow("unknown flag") << "[href=x q]" << unexpected << "Unexpected \"q\"";
    QTest::newRow("no attribute name") << "[=x]" << unexpected << "Expected an attribute name at position 1";
    QTest::newRow("unknown operator") << "[a!=b]" << unexpected << "Unexpected \"!\" at position 2";
    QTest::newRow("value that is no name") << "[a=1b]" << unexpected << "Expected an attribute value";
    QTest::newRow("namespace") << "[svg|href]" << unsupported << "Namespaced attribute selectors are not supported";
    QTest::newRow("id without name") << "#" << unexpected << "Expected an id at the end of \"#\"";
    QTest::newRow("id after type without name") << "div# p" << unexpected << "Expected an id at position 4";
    QTest::newRow("class starting with a digit") << ".1a" << unexpected << "Expected a class name at position 1";
    QTest::newRow("class starting with a dash and digit") << ".-1" << unexpected << "Expected a class name";
    QTest::newRow("unfinished escape") << "a\\" << unterminated << "Unfinished escape";
    QTest::newRow("stray brace") << "a}" << unexpected << "Unexpected \"}\" at position 1 in \"a}\"";
}

void TestCssSelector::parseErrors()
{
    QFETCH(QString, selector);
    QFETCH(int, code);
    QFETCH(QString, message);

    const Result<CssSelector> parsed = CssSelector::parse(selector);
    QVERIFY(!parsed.ok());
    QCOMPARE(parsed.error().domain(), CssSelector::errorDomain);
    QVERIFY2(parsed.error().description().contains(message), qPrintable(parsed.error().description()));
    QCOMPARE(parsed.error().code(), code);

    // The document's text entry point reports the same error.
    const auto queried = m_page->querySelectorAll(selector);
    QVERIFY(!queried.ok());
    QCOMPARE(queried.error(), parsed.error());
}

void TestCssSelector::deeplyNestedPages()
{
    // As deep as a document gets: each element is tested against all its ancestors by the combinators.
    const int depth = int(HtmlDocument::maximumDepth);
    const HtmlDocument document =
        HtmlDocument::parse(QByteArray("<div class=d>").repeated(depth - 2) + "<section><span>x</span>");
    const auto absent = document.querySelectorAll(u"nav div");
    QVERIFY(absent.ok());
    QVERIFY(absent.value().isEmpty());
    const auto spans = document.querySelectorAll(u"body > div .d > section > span");
    QVERIFY(spans.ok());
    QCOMPARE(spans.value().size(), 1);
    const auto nested = document.querySelectorAll(u"div div.d");
    QVERIFY(nested.ok());
    QCOMPARE(nested.value().size(), depth - 3);
    for (const HtmlElement* element : nested.value()) {
        QVERIFY(CssSelector::parse(u"div div.d").value().matches(*element));
    }
}

QTEST_GUILESS_MAIN(TestCssSelector)
#include "TestCssSelector.moc"
