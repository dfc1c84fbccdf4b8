// The real LinkhopServer program: its ready line, its log, the port already taken, and SIGTERM.
#include "core/messages.h"
#include "core/udpendpoint.h"
#include "scriptedclient.h"
#include "scriptedserver.h"

#include <QProcess>
#include <QtTest>

using namespace Qt::Literals::StringLiterals;
using namespace linkhop;
using linkhop::test::ScriptedClient;
using linkhop::test::TestAddress;
using linkhop::test::WaitUntil;

class tst_serverprocess : public QObject
{
    Q_OBJECT

    static QString Program() { return QCoreApplication::applicationDirPath() + u"/LinkhopServer"_s; }

    // Starts the server bound to the test address; true once it has said it is ready.
    static bool StartServer(QProcess& server)
    {
        // Another program's test may hold port 7200 on every address for a moment: try again.
        for (int attempt = 0; attempt < 5; ++attempt) {
            server.start(Program(), {u"--bind"_s, TestAddress().toString()});
            if (!server.waitForStarted(5000)) return false;
            const QByteArray ready =
                u"LinkhopServer ready on %1:7200\n"_s.arg(TestAddress().toString()).toUtf8();
            QByteArray output;
            const bool said = WaitUntil([&] {
                output += server.readAllStandardOutput();
                return output.startsWith(ready) || server.state() == QProcess::NotRunning;
            });
            if (said && server.state() == QProcess::Running) return true;
            server.waitForFinished(1000);
            QTest::qWait(500);
        }
        return false;
    }

private Q_SLOTS:
    void sigtermDisconnectsPlayers()
    {
        QProcess server;
        QVERIFY(StartServer(server));
        ScriptedClient ann(47311), bo(47312);
        QCOMPARE(ann.Join(u"Ann"_s).constLast(), u"PLAYERLIST COUNT=1;P1=Ann;"_s);
        QCOMPARE(bo.Join(u"Bo"_s).constLast(), u"PLAYERLIST COUNT=2;P1=Ann;P2=Bo;"_s);
        ann.Skip();

        server.terminate(); // SIGTERM
        QCOMPARE(ann.Next(), u"DISCONNECT"_s);
        QCOMPARE(bo.Next(), u"DISCONNECT"_s);
        // Waiting for the notices lets events run, so the program's end may have been seen already.
        QVERIFY(server.state() == QProcess::NotRunning || server.waitForFinished(5000));
        QCOMPARE(server.exitStatus(), QProcess::NormalExit);
        QCOMPARE(server.exitCode(), 0);

        // One time-stamped line per event.
        const QStringList log =
            QString::fromUtf8(server.readAllStandardOutput()).split(u'\n', Qt::SkipEmptyParts);
        const QRegularExpression line(u"^\\d{4}-\\d\\d-\\d\\d \\d\\d:\\d\\d:\\d\\d\\.\\d{3} "_s);
        QVERIFY(!log.isEmpty());
        for (const QString& entry : log)
            QVERIFY2(line.match(entry).hasMatch(), qPrintable(entry));
        QCOMPARE(log.filter(u" join \"Ann\""_s).size(), 1);
        QCOMPARE(log.filter(u" join \"Bo\""_s).size(), 1);
    }

    void portTakenEndsAtOnce()
    {
        UdpEndpoint holder;
        QVERIFY(WaitUntil([&] { return holder.Bind(u"7200"_s, TestAddress()); }, 5000));
        QProcess server;
        server.start(Program(), {u"--bind"_s, TestAddress().toString()});
        QVERIFY(server.waitForFinished(5000));
        QCOMPARE(server.exitCode(), 1);
        QVERIFY(QString::fromUtf8(server.readAllStandardError()).contains(u"cannot listen on UDP"_s));
        QVERIFY(server.readAllStandardOutput().isEmpty());
    }

    void badAddressIsRefused()
    {
        QProcess server;
        server.start(Program(), {u"--bind"_s, u"not-an-address"_s});
        QVERIFY(server.waitForFinished(5000));
        QCOMPARE(server.exitCode(), 2);
    }
};

QTEST_GUILESS_MAIN(tst_serverprocess)
#include "tst_serverprocess.moc"
