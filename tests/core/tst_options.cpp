#include "core/options.h"

#include <QFile>
#include <QTemporaryDir>
#include <QtTest>

using namespace Qt::Literals::StringLiterals;
using namespace linkhop;

namespace {

QByteArray Content(const QString& path)
{
    QFile f(path);
    return f.open(QIODevice::ReadOnly) ? f.readAll() : QByteArray("<missing>");
}

void Write(const QString& path, const QByteArray& bytes)
{
    QFile f(path);
    QVERIFY(f.open(QIODevice::WriteOnly));
    f.write(bytes);
}

} // namespace

class tst_options : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void saveAndLoad_data()
    {
        QTest::addColumn<QString>("value");
        QTest::addColumn<QByteArray>("file");
        QTest::addColumn<QString>("loaded");
        QTest::addColumn<QByteArray>("fileAfterLoad");
        QTest::newRow("plain") << u"ann"_s << QByteArray("ann\r\n") << u"ann"_s << QByteArray("ann\r\n");
        QTest::newRow("empty") << QString() << QByteArray("\r\n") << QString() << QByteArray();
        QTest::newRow("crlf inside") << u"one\r\ntwo"_s << QByteArray("one\r\ntwo\r\n") << u"one"_s
                                     << QByteArray("one\r\ntwo\r\n");
        QTest::newRow("lf inside") << u"one\ntwo"_s << QByteArray("one\ntwo\r\n") << u"one"_s
                                   << QByteArray("one\ntwo\r\n");
        QTest::newRow("cp1252") << u"Jos\u00e9 \u20ac"_s << QByteArray("Jos\xe9 \x80\r\n") << u"Jos\u00e9 \u20ac"_s
                                << QByteArray("Jos\xe9 \x80\r\n");
        QTest::newRow("markers kept") << u"%p user(s) connected to Linkhop Server %v"_s
                                      << QByteArray("%p user(s) connected to Linkhop Server %v\r\n")
                                      << u"%p user(s) connected to Linkhop Server %v"_s
                                      << QByteArray("%p user(s) connected to Linkhop Server %v\r\n");
    }
    void saveAndLoad()
    {
        QFETCH(QString, value);
        QFETCH(QByteArray, file);
        QFETCH(QString, loaded);
        QFETCH(QByteArray, fileAfterLoad);
        QTemporaryDir dir;
        const Options options(dir.path());
        options.SaveOption(u"Welcome"_s, u"older value"_s);
        options.SaveOption(u"Welcome"_s, value);
        QCOMPARE(Content(dir.filePath(u"Welcome.dat"_s)), file);
        QCOMPARE(options.LoadOption(u"Welcome"_s), loaded);
        QCOMPARE(Content(dir.filePath(u"Welcome.dat"_s)), fileAfterLoad);
    }

    void loadingOddFiles_data()
    {
        QTest::addColumn<QByteArray>("file");
        QTest::addColumn<QString>("loaded");
        QTest::addColumn<QByteArray>("fileAfterLoad");
        QTest::newRow("zero bytes") << QByteArray() << QString() << QByteArray();
        QTest::newRow("first line empty") << QByteArray("\r\nsecond\r\n") << QString() << QByteArray();
        QTest::newRow("lone lf first") << QByteArray("\nsecond") << QString() << QByteArray();
        QTest::newRow("no line end") << QByteArray("ann") << u"ann"_s << QByteArray("ann");
        QTest::newRow("cr only") << QByteArray("ann\rbo") << u"ann"_s << QByteArray("ann\rbo");
        QTest::newRow("binary") << QByteArray("a\0b\r\n", 5) << QString::fromLatin1("a\0b", 3) << QByteArray("a\0b\r\n", 5);
    }
    void loadingOddFiles()
    {
        QFETCH(QByteArray, file);
        QFETCH(QString, loaded);
        QFETCH(QByteArray, fileAfterLoad);
        QTemporaryDir dir;
        Write(dir.filePath(u"Name.dat"_s), file);
        QCOMPARE(Options(dir.path()).LoadOption(u"Name"_s), loaded);
        QCOMPARE(Content(dir.filePath(u"Name.dat"_s)), fileAfterLoad);
    }

    void failuresAreHidden()
    {
        QTemporaryDir dir;
        const Options options(dir.path());
        QCOMPARE(options.LoadOption(u"Name"_s), QString());
        QVERIFY(!QFile::exists(dir.filePath(u"Name.dat"_s)));

        // A folder in the file's place can be neither read nor replaced.
        QVERIFY(QDir(dir.path()).mkdir(u"Server.dat"_s));
        options.SaveOption(u"Server"_s, u"x"_s);
        QCOMPARE(options.LoadOption(u"Server"_s), QString());

        const Options nowhere(dir.filePath(u"no/such/folder"_s));
        nowhere.SaveOption(u"Name"_s, u"ann"_s);
        QCOMPARE(nowhere.LoadOption(u"Name"_s), QString());
    }

    void serverList_data()
    {
        QTest::addColumn<QString>("stored");
        QTest::addColumn<QString>("joined");
        QTest::addColumn<QStringList>("read");
        QTest::addColumn<QString>("written");
        QTest::newRow("empty") << QString() << u"a.example"_s << QStringList{} << u"a.example"_s;
        QTest::newRow("stray commas") << u",a,,b,"_s << u"c"_s << QStringList{u"a"_s, u"b"_s} << u"c,a,b"_s;
        QTest::newRow("already first") << u"a,b"_s << u"a"_s << QStringList{u"a"_s, u"b"_s} << u"a,b"_s;
        QTest::newRow("case differs") << u"a,Host.Example,b"_s << u"host.example"_s
                                      << QStringList{u"a"_s, u"Host.Example"_s, u"b"_s} << u"host.example,a,b"_s;
        QTest::newRow("spaces kept") << u" a ,b"_s << u" a "_s << QStringList{u" a "_s, u"b"_s} << u" a ,b"_s;
    }
    void serverList()
    {
        QFETCH(QString, stored);
        QFETCH(QString, joined);
        QFETCH(QStringList, read);
        QFETCH(QString, written);
        QCOMPARE(SplitServerList(stored), read);
        QCOMPARE(JoinServerList(joined, read), written);
    }
};

QTEST_GUILESS_MAIN(tst_options)
#include "tst_options.moc"
