#include "DrawingStore.h"
#include "PaletteColor.h"
#include "TestSettings.h"
#include "Tool.h"

#include <QProcess>
#include <QtTest>

// Tools, the palette, and the fatal stop on an invalid colour index, which
// runs in a child process (this same binary, told what to break).
class ModelTypesTest : public QObject {
    Q_OBJECT

    struct ChildResult {
        QProcess::ExitStatus status;
        QString stderrText;
    };
    static ChildResult runChild(const QString& what) {
        QProcess child;
        QProcessEnvironment env = QProcessEnvironment::systemEnvironment();
        env.insert(QStringLiteral("QUILLERY_TEST_BREAK"), what);
        child.setProcessEnvironment(env);
        child.start(QCoreApplication::applicationFilePath(), {});
        child.waitForFinished(20000);
        return {child.exitStatus(), QString::fromLocal8Bit(child.readAllStandardError())};
    }

private Q_SLOTS:
    void toolRawValues() {
        const QStringList raws = {QStringLiteral("pen"),         QStringLiteral("arrow"),
                                  QStringLiteral("ellipse"),     QStringLiteral("rect"),
                                  QStringLiteral("highlighter"), QStringLiteral("text")};
        for (int i = 0; i < raws.size(); ++i) {
            QCOMPARE(rawValue(allTools[i]), raws[i]);
            QCOMPARE(toolFromRawValue(raws[i]), std::optional<Tool>(allTools[i]));
            QCOMPARE(int(allTools[i]), i);
        }
        QVERIFY(!toolFromRawValue(QStringLiteral("Pen")));
        QVERIFY(!toolFromRawValue(QString()));
        QVERIFY(!toolFromRawValue(QStringLiteral("rectangle")));
        QVERIFY(isShapeTool(Tool::arrow) && isShapeTool(Tool::ellipse) && isShapeTool(Tool::rect));
        QVERIFY(isFreehandTool(Tool::pen) && isFreehandTool(Tool::highlighter));
        QVERIFY(!isShapeTool(Tool::text) && !isFreehandTool(Tool::text));
    }

    void paletteIsSixSrgbColours() {
        const auto& entries = palette();
        QCOMPARE(entries.size(), size_t(6));
        const QStringList names = {QStringLiteral("Red"),   QStringLiteral("Yellow"),
                                   QStringLiteral("Green"), QStringLiteral("Blue"),
                                   QStringLiteral("White"), QStringLiteral("Black")};
        for (size_t i = 0; i < entries.size(); ++i) {
            QCOMPARE(entries[i].name, names[qsizetype(i)]);
            QCOMPARE(entries[i].color.alphaF(), 1.0f);
            QCOMPARE(entries[i].color.spec(), QColor::Rgb);
        }
        // QColor keeps 16 bits a channel.
        QCOMPARE(qRound(entries[0].color.greenF() * 1000), 230);
        QCOMPARE(qRound(entries[3].color.redF() * 1000), 40);
        QCOMPARE(qRound(entries[1].color.greenF() * 1000), 840);
        QCOMPARE(&paletteColor(5), &entries[5]);
    }

    void invalidColourIndexIsFatal_data() {
        QTest::addColumn<QString>("what");
        QTest::addColumn<QString>("message");
        QTest::newRow("begin with 6") << QStringLiteral("begin6") << QStringLiteral("index 6");
        QTest::newRow("text with -1") << QStringLiteral("text-1") << QStringLiteral("index -1");
    }
    void invalidColourIndexIsFatal() {
        QFETCH(QString, what);
        QFETCH(QString, message);
        const auto [status, stderrText] = runChild(what);
        QCOMPARE(status, QProcess::CrashExit);
        QVERIFY2(stderrText.contains(message), qPrintable(stderrText));
        QVERIFY(stderrText.contains(QStringLiteral("Quillery: fatal error")));
    }
};

int main(int argc, char** argv) {
    const QByteArray what = qgetenv("QUILLERY_TEST_BREAK");
    if (!what.isEmpty()) {
        DrawingStore store;
        if (what == "begin6") {
            store.colorIndex = 6;
            store.begin({0, 0});
        } else {
            store.colorIndex = -1;
            store.beginText({0, 0});
        }
        return 0; // not reached
    }
    QCoreApplication app(argc, argv);
    ModelTypesTest test;
    return QTest::qExec(&test, argc, argv);
}
#include "tst_modeltypes.moc"
