#include "webicons/HtmlDocument.h"

#include <QRandomGenerator>
#include <QStringEncoder>
#include <QTest>

using namespace Qt::StringLiterals;

namespace {

const int repetitions = 50000;
const int depthAllowance = int(HtmlDocument::maximumDepth) + 8;

// An element as the expectations name it: "tag|name=value|...|text".
QString describe(const HtmlElement& element)
{
    QStringList parts{element.tagName()};
    for (const HtmlElement::Attribute& attribute : element.attributes()) {
        parts.append(attribute.name + u'=' + attribute.value);
    }
    parts.append(element.text());
    return parts.join(u'|');
}

QStringList query(const HtmlDocument& document, const QString& selector)
{
    QStringList found;
    const auto matches = document.querySelectorAll(selector);
    if (!matches) {
        return {u"error: "_s + matches.error().description()};
    }
    for (const HtmlElement* element : matches.value()) {
        found.append(describe(*element));
    }
    return found;
}

QByteArray utf16WithByteOrderMark(const QString& text)
{
    QStringEncoder encoder(QStringConverter::Utf16LE, QStringConverter::Flag::WriteBom);
    return encoder.encode(text);
}

} // namespace

class TestHtmlDocument : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void parsing_data();
    void parsing();
    void brokenMarkupStillMakesADocument_data();
    void brokenMarkupStillMakesADocument();
    void deepNesting_data();
    void deepNesting();
    void treeLinks();
};

void TestHtmlDocument::parsing_data()
{
    QTest::addColumn<QByteArray>("html");
    QTest::addColumn<QString>("selector");
    QTest::addColumn<QStringList>("expected");

    QTest::newRow("upper-case tags and attributes")
        << QByteArray("<DIV ID=\"Box\" CLASS=\"A b\"><SPAN Title=\"Hi There\">t</SPAN></DIV>") << "div, span"
        << QStringList{"div|id=Box|class=A b|t", "span|title=Hi There|t"};
    QTest::newRow("unknown elements keep their name")
        << QByteArray("<My-Widget Data-X=1>w</My-Widget>") << "my-widget" << QStringList{"my-widget|data-x=1|w"};
    QTest::newRow("svg element names") << QByteArray("<svg viewBox='0 0 1 1'><linearGradient id=g></linearGradient>")
                                       << "svg lineargradient" << QStringList{"lineargradient|id=g|"};
    QTest::newRow("unquoted and repeated attributes") << QByteArray("<link rel=icon href=/a.png rel=stylesheet>")
                                                      << "link" << QStringList{"link|rel=icon|href=/a.png|"};
    QTest::newRow("markup inside a script") << QByteArray("<script>s='<link rel=icon href=/x.png>'</script>")
                                            << "link, script" << QStringList{"script|s='<link rel=icon href=/x.png>'"};
    QTest::newRow("link in the body") << QByteArray("<body><p>x</p><link rel=icon href=/b.png>") << "body > link"
                                      << QStringList{"link|rel=icon|href=/b.png|"};
    QTest::newRow("nothing at all") << QByteArray() << "*" << QStringList{"html|", "head|", "body|"};
    QTest::newRow("declared latin-1") << QByteArray("<meta charset=iso-8859-1><p>caf\xe9</p>") << "p"
                                      << QStringList{u"p|café"_s};
    QTest::newRow("utf-16 with a byte order mark")
        << utf16WithByteOrderMark(u"<title>Ünïcode</title><p lang=de>Grüße</p>"_s) << "title, p"
        << QStringList{u"title|Ünïcode"_s, u"p|lang=de|Grüße"_s};
    QTest::newRow("invalid utf-8 is replaced") << QByteArray("<p>a\xff\xfe"
                                                             "b</p>")
                                               << "p" << QStringList{u"p|a\uFFFD\uFFFDb"_s};
    QTest::newRow("template contents") << QByteArray("<template><link rel=icon href=/t.png></template>")
                                       << "template > link" << QStringList{"link|rel=icon|href=/t.png|"};
}

void TestHtmlDocument::parsing()
{
    QFETCH(QByteArray, html);
    QFETCH(QString, selector);
    QFETCH(QStringList, expected);

    const HtmlDocument document = HtmlDocument::parse(html);
    QCOMPARE(query(document, selector), expected);
}

void TestHtmlDocument::brokenMarkupStillMakesADocument_data()
{
    QTest::addColumn<QByteArray>("html");

    for (const char* fragment : {"<",
                                 "<a",
                                 "<a href",
                                 "<a href='",
                                 "<a href=x",
                                 "</",
                                 "</p",
                                 "<!",
                                 "<!--",
                                 "<!-- -",
                                 "<!DOCTYPE",
                                 "<!DOCTYPE html PUBLIC \"",
                                 "<![CDATA[",
                                 "<?xml",
                                 "&",
                                 "&#",
                                 "&#x",
                                 "&#x110000;",
                                 "&#0;",
                                 "<div class=\"a",
                                 "<script>",
                                 "<script><!--",
                                 "<style>",
                                 "<textarea>",
                                 "<title>",
                                 "<plaintext>",
                                 "<table><tr><td><table>",
                                 "<svg><foreignObject><math><mi><svg>",
                                 "<select><option><select>",
                                 "<frameset><frameset>",
                                 "<html><html><head><head><body><body>"}) {
        QTest::newRow(fragment) << QByteArray(fragment);
    }
    QTest::newRow("zero bytes") << QByteArray(64, '\0');
    // Fixed seeds: a failure names an input that can be reproduced.
    for (quint32 seed : {1u, 2u, 3u}) {
        QRandomGenerator random(seed);
        QByteArray noise(4096, Qt::Uninitialized);
        for (char& c : noise) {
            // Mostly markup characters, so that the parser meets many half-made tags.
            static const char alphabet[] = "<>/!-=\"' abcdilnkrefhsp&#;\n\x80\xff";
            c = alphabet[random.bounded(int(sizeof(alphabet) - 1))];
        }
        QTest::addRow("noise %u", seed) << noise;
    }
}

void TestHtmlDocument::brokenMarkupStillMakesADocument()
{
    QFETCH(QByteArray, html);

    const HtmlDocument document = HtmlDocument::parse(html);
    QCOMPARE(document.root().tagName(), u"html");
    QVERIFY(document.root().parent() == nullptr);
    // Every document has its head, whatever it was made from.
    QCOMPARE(query(document, u"html > head"_s).size(), 1);
    const auto all = document.querySelectorAll(u"*");
    QVERIFY(all.ok());
    QCOMPARE(all.value().size(), qsizetype(document.elements().size()));
}

void TestHtmlDocument::deepNesting_data()
{
    QTest::addColumn<QByteArray>("prefix");
    QTest::addColumn<QByteArray>("repeated"); // many times, never closed; %1 is the repetition's number
    QTest::addColumn<QString>("tag");
    QTest::addColumn<int>("count"); // of tag in the document; -1: not checked

    const int depth = int(HtmlDocument::maximumDepth);
    QTest::newRow("blocks") << QByteArray() << QByteArray("<div>") << "div" << depth;
    QTest::newRow("spans with attributes")
        << QByteArray() << QByteArray("<span class=s title='a>b' data-x=\"/>\">") << "span" << depth;
    QTest::newRow("self-closed blocks stay open") << QByteArray() << QByteArray("<div/>") << "div" << depth;
    QTest::newRow("stray end tags") << QByteArray() << QByteArray("<div></span>") << "div" << depth;
    QTest::newRow("lists") << QByteArray() << QByteArray("<ul><li>") << "ul" << depth;
    QTest::newRow("svg groups") << QByteArray("<svg>") << QByteArray("<g>") << "g" << depth - 1;
    QTest::newRow("self-closed svg paths are siblings")
        << QByteArray("<svg>") << QByteArray("<path d='M0 0'/>") << "path" << repetitions;
    QTest::newRow("misnested formatting") << QByteArray() << QByteArray("<b><div></b>") << "b" << -1;
    QTest::newRow("misnested links") << QByteArray() << QByteArray("<a href=x><div></a>") << "a" << -1;
    // Each paragraph reopens every different b left open before it: a tree of quadratic size without the cap.
    QTest::newRow("formatting left open, all different")
        << QByteArray() << QByteArray("<p><b id=%1>x</p>") << "b" << -1;
    QTest::newRow("formatting closed by blocks")
        << QByteArray() << QByteArray("<div><i class=c%1></div>x") << "i" << -1;
    QTest::newRow("tables") << QByteArray() << QByteArray("<table><tr><td><div>") << "table" << -1;
    QTest::newRow("comments and scripts do not count")
        << QByteArray() << QByteArray("<!-- <div> --><script>'<div>'</script><div>") << "div" << depth;
    // Ordinary sloppy pages are not cut.
    QTest::newRow("unclosed paragraphs") << QByteArray() << QByteArray("<p>text") << "p" << repetitions;
    QTest::newRow("unclosed list items") << QByteArray("<ul>") << QByteArray("<li>item") << "li" << repetitions;
    QTest::newRow("paragraphs with the same formatting left open")
        << QByteArray() << QByteArray("<p><b>bold</p>") << "p" << repetitions;
}

void TestHtmlDocument::deepNesting()
{
    QFETCH(QByteArray, prefix);
    QFETCH(QByteArray, repeated);
    QFETCH(QString, tag);
    QFETCH(int, count);

    QByteArray html = prefix;
    for (int i = 0; i < repetitions; ++i) {
        html += repeated.contains("%1") ? QByteArray(repeated).replace("%1", QByteArray::number(i)) : repeated;
    }
    const HtmlDocument document = HtmlDocument::parse(html + "bottom");
    const auto found = document.querySelectorAll(tag);
    QVERIFY(found.ok());
    if (count >= 0) {
        QCOMPARE(found.value().size(), count);
    }
    QVERIFY(document.root().text().endsWith(u"bottom"));
    // However the page nests, the tree stays within a few times the depth browsers allow.
    for (const auto& element : document.elements()) {
        int ancestors = 0;
        for (const HtmlElement* e = element->parent(); e; e = e->parent()) {
            ++ancestors;
        }
        QVERIFY2(ancestors <= 3 * depthAllowance, qPrintable(element->tagName() + QString::number(ancestors)));
    }
}

void TestHtmlDocument::treeLinks()
{
    const HtmlDocument document =
        HtmlDocument::parse("<head><title>T</title></head><body><p>a<b>b</b>c</p><p>d</p>e</body>");
    const HtmlElement& root = document.root();
    QCOMPARE(root.children().size(), 2);
    const HtmlElement* body = root.children()[1];
    QCOMPARE(body->tagName(), u"body");
    QCOMPARE(body->parent(), &root);
    QCOMPARE(body->children().size(), 2);
    QCOMPARE(body->children()[0]->text(), u"abc");
    QCOMPARE(body->children()[0]->children().size(), 1);
    QCOMPARE(body->children()[0]->children()[0]->parent(), body->children()[0]);
    QCOMPARE(body->text(), u"abcde");
    QCOMPARE(root.text(), u"Tabcde");
    QCOMPARE(document.elements().front().get(), &root);
}

QTEST_GUILESS_MAIN(TestHtmlDocument)
#include "TestHtmlDocument.moc"
