#include "core/fault.h"
#include "core/messages.h"
#include "core/version.h"
#include "core/wire.h"

#include <QtTest>

using namespace Qt::Literals::StringLiterals;
using namespace linkhop;

class tst_wire : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void verb_data()
    {
        QTest::addColumn<QString>("message");
        QTest::addColumn<QString>("verb");
        QTest::newRow("bare") << u"NEEDPWD"_s << u"NEEDPWD"_s;
        QTest::newRow("fields") << u"ISHOST NAME=ann;"_s << u"ISHOST"_s;
        QTest::newRow("lower case kept") << u"needpwd"_s << u"needpwd"_s;
        QTest::newRow("leading space") << u" PING"_s << QString();
        QTest::newRow("empty") << QString() << QString();
        QTest::newRow("message with space only") << u"MESSAGE "_s << u"MESSAGE"_s;
    }
    void verb()
    {
        QFETCH(QString, message);
        QFETCH(QString, verb);
        QCOMPARE(Verb(message), verb);
    }

    void getParam_data()
    {
        QTest::addColumn<QString>("message");
        QTest::addColumn<QString>("key");
        QTest::addColumn<QString>("value");
        const QString list = u"PLAYERLIST COUNT=2;P1=ann;P2=bo;"_s;
        QTest::newRow("present") << list << u"P2"_s << u"bo"_s;
        QTest::newRow("missing") << list << u"P3"_s << QString();
        QTest::newRow("unterminated last") << u"PLAYERLIST COUNT=2;P1=ann;P2=bo"_s << u"P2"_s << QString();
        QTest::newRow("empty value") << u"CONNECT PWD=;"_s << u"PWD"_s << QString();
        const QString score = u"SCOREIS NAME=ann;WINS=1;CLICK=7;RCLICK=2;INGAME=yes;"_s;
        QTest::newRow("click before rclick") << score << u"CLICK"_s << u"7"_s;
        QTest::newRow("rclick") << score << u"RCLICK"_s << u"2"_s;
        QTest::newRow("rclick first shadows click")
            << u"SCOREIS NAME=ann;RCLICK=2;CLICK=7;"_s << u"CLICK"_s << u"2"_s;
        QTest::newRow("first occurrence inside a value")
            << u"CHAT NAME=x;SRC=NAME=y;"_s << u"NAME"_s << u"x"_s;
        QTest::newRow("key inside earlier value wins") << u"X A=B=1;B=2;"_s << u"B"_s << u"1"_s;
        QTest::newRow("case sensitive") << u"ISHOST name=ann;"_s << u"NAME"_s << QString();
        QTest::newRow("hash key") << u"STATUS SERVER=a;#=3;"_s << u"#"_s << u"3"_s;
        QTest::newRow("key without equals skipped") << u"X NAME NAME=bo;"_s << u"NAME"_s << u"bo"_s;
        QTest::newRow("key at end") << u"X NAME"_s << u"NAME"_s << QString();
        QTest::newRow("equals at end") << u"X NAME="_s << u"NAME"_s << QString();
        QTest::newRow("empty message") << QString() << u"NAME"_s << QString();
    }
    void getParam()
    {
        QFETCH(QString, message);
        QFETCH(QString, key);
        QFETCH(QString, value);
        QCOMPARE(GetParam(message, key), value);
    }

    void indexedParamsAgreeWithGetParam_data()
    {
        QTest::addColumn<QString>("message");
        QTest::newRow("plain") << u"PLAYERLIST COUNT=3;P1=ann;P2=bo;P3=cy;"_s;
        QTest::newRow("gaps") << u"PLAYERLIST COUNT=9;P2=bo;P7=cy;"_s;
        QTest::newRow("leading zeros") << u"PLAYERLIST COUNT=2;P01=x;P1=ann;"_s;
        QTest::newRow("repeated key") << u"PLAYERLIST COUNT=1;P1=ann;P1=bo;"_s;
        QTest::newRow("inside values") << u"PLAYERLIST COUNT=2;P1=aP2=x;P2=bo;"_s;
        QTest::newRow("unterminated") << u"PLAYERLIST COUNT=2;P1=ann;P2=bo"_s;
        QTest::newRow("huge index") << u"PLAYERLIST P99999999999=x;P2147483647=y;"_s;
        QTest::newRow("doubled prefix") << u"PLAYERLIST PP1=a;"_s;
    }
    void indexedParamsAgreeWithGetParam()
    {
        QFETCH(QString, message);
        const auto fields = IndexedParams(message, u"P");
        for (auto it = fields.cbegin(); it != fields.cend(); ++it)
            QCOMPARE(it.value(), GetParam(message, QString(u"P"_s + QString::number(it.key()))));
        for (int k = 0; k < 20; ++k) {
            const QString key = u"P"_s + QString::number(k);
            QCOMPARE(fields.contains(k), message.contains(key + u'='));
        }
    }

    void number_data()
    {
        QTest::addColumn<QString>("text");
        QTest::addColumn<bool>("valid");
        QTest::addColumn<int>("value");
        QTest::newRow("zero") << u"0"_s << true << 0;
        QTest::newRow("negative") << u"-5"_s << true << -5;
        QTest::newRow("plus") << u"+5"_s << true << 5;
        QTest::newRow("spaces") << u" 12 "_s << true << 12;
        QTest::newRow("max") << u"2147483647"_s << true << 2147483647;
        QTest::newRow("min") << u"-2147483648"_s << true << int(-2147483648LL);
        QTest::newRow("overflow") << u"2147483648"_s << false << 0;
        QTest::newRow("underflow") << u"-2147483649"_s << false << 0;
        QTest::newRow("very long") << QString(400, u'9') << false << 0;
        QTest::newRow("empty") << QString() << false << 0;
        QTest::newRow("sign only") << u"-"_s << false << 0;
        QTest::newRow("letters") << u"12a"_s << false << 0;
        QTest::newRow("decimal") << u"2.5"_s << false << 0;
    }
    void number()
    {
        QFETCH(QString, text);
        QFETCH(bool, valid);
        QFETCH(int, value);
        try {
            const qint32 n = Number(text);
            QVERIFY(valid);
            QCOMPARE(n, value);
        } catch (const Fault&) {
            QVERIFY(!valid);
        }
    }

    void freeTextBodies()
    {
        QCOMPARE(MessageBody(u"MESSAGE Welcome, all;=!"_s), u"Welcome, all;=!"_s);
        QCOMPARE(MessageBody(u"MESSAGE "_s), QString());
        QVERIFY_THROWS_EXCEPTION(Fault, MessageBody(u"MESSAGE"_s));
        QCOMPARE(ChatText(u"CHAT NAME=ann;TEXT=a;b=c TEXT=d"_s), u"a;b=c TEXT=d"_s);
        QCOMPARE(ChatText(u"CHAT NAME=ann;"_s), QString());
    }

    void cleaning()
    {
        QCOMPARE(CleanField(u"a=b;c==;d"_s), u"abcd"_s);
        QCOMPARE(CleanField(u"=;=;"_s), QString());
    }

    void windows1252()
    {
        const QString text = u"Caf\u00e9 \u20ac \u201cq\u201d \u2014 \u0178"_s;
        const QByteArray bytes = ToWire(text);
        QCOMPARE(bytes, QByteArray("Caf\xe9 \x80 \x93q\x94 \x97 \x9f"));
        QCOMPARE(FromWire(bytes), text);
        QCOMPARE(ToWire(u"\u4e2d\U0001F600x"_s), QByteArray("??x"));
        QByteArray all(256, 0);
        for (int i = 0; i < 256; ++i) all[i] = char(i);
        QCOMPARE(ToWire(FromWire(all)), all); // every byte survives, the undefined five included
    }

    void builders_data()
    {
        QTest::addColumn<QString>("built");
        QTest::addColumn<QByteArray>("wire");
        const QString v = ClientVersion.toString();
        QTest::newRow("connect") << msg::Connect(v, u"ann", u"7201")
                                 << QByteArray("CONNECT VER=1.04 (beta);NAME=ann;PORT=7201;PWD=;");
        QTest::newRow("connect pwd") << msg::ConnectWithPassword(v, u"ann", u"s3cret")
                                     << QByteArray("CONNECT VER=1.04 (beta);NAME=ann;PWD=s3cret;");
        QTest::newRow("getplayerlist") << msg::GetPlayerList(u"7201") << QByteArray("GETPLAYERLIST PORT=7201;");
        QTest::newRow("getwords") << msg::GetWords(u"ann") << QByteArray("GETWORDS NAME=ann;");
        QTest::newRow("disconnect") << msg::Disconnect(u"ann") << QByteArray("DISCONNECT NAME=ann;");
        QTest::newRow("getscore") << msg::GetScore(u"7201", u"bo") << QByteArray("GETSCORE PORT=7201;NAME=bo;");
        QTest::newRow("pingme") << msg::PingMe(u"7201") << QByteArray("PINGME 7201");
        QTest::newRow("pong") << msg::Pong(u"ann", u"12:00:01.5") << QByteArray("PONG NAME=ann;TIME=12:00:01.5;");
        QTest::newRow("navigate") << msg::Navigate(u"ann", u"Caf\u00e9") << QByteArray("NAVIGATE NAME=ann;URL=Caf\xe9;");
        QTest::newRow("sendmypath") << msg::SendMyPath(u"ann", u"Apple\rBanana")
                                    << QByteArray("SENDMYPATH NAME=ann;PATH=Apple\rBanana;");
        QTest::newRow("chat") << msg::Chat(u"ann", u"a;b=c") << QByteArray("CHAT NAME=ann;TEXT=a;b=c");
        QTest::newRow("disqualified") << msg::DisqualifiedNotice(u"ann", u"talk")
                                      << QByteArray("CHAT NAME=GAME;TEXT=ann has been disqualified for visiting an "
                                                    "illegal page: \"talk\"");
        QTest::newRow("time") << msg::TimeRequest(u"7201") << QByteArray("TIME PORT=7201;");
        QTest::newRow("random 1") << msg::GetRandom(1) << QByteArray("GETRANDOM SRC=1;");
        QTest::newRow("random 2") << msg::GetRandom(2) << QByteArray("GETRANDOM SRC=2;");
        QTest::newRow("setwords") << msg::SetWords(u"Apple", u"Banana")
                                  << QByteArray("SETWORDS COUNT=1;WORD0=Apple;WORD1=Banana;");
        QTest::newRow("status") << msg::Status(u"game.example", u"7201")
                                << QByteArray("STATUS SERVER=game.example;PORT=7201;");
        QTest::newRow("scoreis") << msg::ScoreIs(u"ann", 1, 7, 2, true)
                                 << QByteArray("SCOREIS NAME=ann;WINS=1;CLICK=7;RCLICK=2;INGAME=yes;");
        QTest::newRow("playerlist") << msg::PlayerList({u"ann"_s, u"bo"_s})
                                    << QByteArray("PLAYERLIST COUNT=2;P1=ann;P2=bo;");
        QTest::newRow("startgame") << msg::StartGame({u"Apple"_s, u"Banana"_s})
                                   << QByteArray("STARTGAME COUNT=1;WORD0=Apple;WORD1=Banana;");
        QTest::newRow("pathis") << msg::PathIs(u"A\rB", u"bo") << QByteArray("PATHIS NAME=bo;PATH=A\rB;");
        QTest::newRow("setrandom") << msg::SetRandom(u"E=mc2", 2) << QByteArray("SETRANDOM SRC=2;URL=E=mc2;");
        QTest::newRow("status reply") << msg::StatusReply(u"h", u"3") << QByteArray("STATUS SERVER=h;#=3;");
    }
    void builders()
    {
        QFETCH(QString, built);
        QFETCH(QByteArray, wire);
        QCOMPARE(ToWire(built), wire);
    }

    void builtRepliesReadBack()
    {
        // What the server builds, the client reads back field by field.
        const QString score = msg::ScoreIs(u"ann", -1, 2147483647, 0, false);
        QCOMPARE(Number(GetParam(score, u"WINS")), -1);
        QCOMPARE(Number(GetParam(score, u"CLICK")), 2147483647);
        QCOMPARE(Number(GetParam(score, u"RCLICK")), 0);
        QCOMPARE(GetParam(score, u"INGAME"), u"no"_s);
        const QString path = msg::PathIs(u"NAME=x\rB", u"bo");
        QCOMPARE(GetParam(path, u"NAME"), u"bo"_s);
        QCOMPARE(GetParam(path, u"PATH"), u"NAME=x\rB"_s);
        QCOMPARE(GetParam(msg::TimeIs(u"10:00", u"1/2/2026"), u"TIME"), u"10:00"_s);
    }
};

QTEST_GUILESS_MAIN(tst_wire)
#include "tst_wire.moc"
