#include "messages.h"

using namespace Qt::Literals::StringLiterals;

namespace linkhop::msg {

namespace {
QString YesNo(bool value) { return value ? u"yes"_s : u"no"_s; }
} // namespace

QString Connect(QStringView version, QStringView name, QStringView port)
{
    return u"CONNECT VER="_s % version % u";NAME=" % name % u";PORT=" % port % u";PWD=;";
}

QString ConnectWithPassword(QStringView version, QStringView name, QStringView password)
{
    return u"CONNECT VER="_s % version % u";NAME=" % name % u";PWD=" % password % u";";
}

QString GetPlayerList(QStringView port) { return u"GETPLAYERLIST PORT="_s % port % u";"; }
QString GetWords(QStringView name) { return u"GETWORDS NAME="_s % name % u";"; }
QString Disconnect(QStringView name) { return u"DISCONNECT NAME="_s % name % u";"; }

QString GetScore(QStringView port, QStringView name)
{
    return u"GETSCORE PORT="_s % port % u";NAME=" % name % u";";
}

QString PingMe(QStringView port) { return u"PINGME "_s % port; }
QString Pong(QStringView name, QStringView time) { return u"PONG NAME="_s % name % u";TIME=" % time % u";"; }
QString Navigate(QStringView name, QStringView url) { return u"NAVIGATE NAME="_s % name % u";URL=" % url % u";"; }

QString SendMyPath(QStringView name, QStringView path)
{
    return u"SENDMYPATH NAME="_s % name % u";PATH=" % path % u";";
}

QString Chat(QStringView name, QStringView text) { return u"CHAT NAME="_s % name % u";TEXT=" % text; }

QString DisqualifiedNotice(QStringView name, QStringView article)
{
    const QString text = name % u" has been disqualified for visiting an illegal page: \"" % article % u"\"";
    return Chat(GameSpeaker, text);
}

QString TimeRequest(QStringView port) { return u"TIME PORT="_s % port % u";"; }
QString GetRandom(int src) { return u"GETRANDOM SRC="_s % QString::number(src) % u";"; }

QString SetWords(QStringView initial, QStringView destination)
{
    return u"SETWORDS COUNT=1;WORD0="_s % initial % u";WORD1=" % destination % u";";
}

QString Status(QStringView server, QStringView port) { return u"STATUS SERVER="_s % server % u";PORT=" % port % u";"; }

QString ConnectAccept(bool playing) { return u"CONNECTACCEPT PLAYING="_s % YesNo(playing) % u";"; }
QString ConnectRejectVersion(QStringView requiredVersion) { return u"CONNECTREJECT VER="_s % requiredVersion % u";"; }
QString ConnectRejectError(QStringView code) { return u"CONNECTREJECT ERROR="_s % code % u";"; }
QString NeedPassword() { return u"NEEDPWD"_s; }
QString IsHost(QStringView name) { return u"ISHOST NAME="_s % name % u";"; }
QString Message(QStringView text) { return u"MESSAGE "_s % text; }

QString PlayerList(const QStringList& names)
{
    QString text = u"PLAYERLIST COUNT="_s % QString::number(names.size()) % u";";
    for (qsizetype i = 0; i < names.size(); ++i)
        text += u"P"_s % QString::number(i + 1) % u"=" % names[i] % u";";
    return text;
}

QString Ping(QStringView time) { return u"PING TIME="_s % time % u";"; }
QString PingIs(QStringView name, qint32 ping) { return u"PINGIS NAME="_s % name % u";PING=" % QString::number(ping) % u";"; }

QString ScoreIs(QStringView name, qint32 wins, qint32 clicks, qint32 roundClicks, bool inGame)
{
    // CLICK must come before RCLICK: the key "CLICK" would otherwise be found inside "RCLICK".
    return u"SCOREIS NAME="_s % name % u";WINS=" % QString::number(wins) % u";CLICK=" % QString::number(clicks) %
           u";RCLICK=" % QString::number(roundClicks) % u";INGAME=" % YesNo(inGame) % u";";
}

QString Join(QStringView name) { return u"JOIN NAME="_s % name % u";"; }
QString Leave(QStringView name) { return u"LEAVE NAME="_s % name % u";"; }
QString Drop(QStringView name) { return u"DROP NAME="_s % name % u";"; }
QString TimeIs(QStringView time, QStringView date) { return u"TIME TIME="_s % time % u";DATE=" % date % u";"; }
QString Winner(QStringView name) { return u"WINNER NAME="_s % name % u";"; }

QString PathIs(QStringView path, QStringView nextChooser)
{
    // NAME first: a title in the path may hold "NAME=", a name never holds "=".
    return u"PATHIS NAME="_s % nextChooser % u";PATH=" % path % u";";
}

QString NewGame(QStringView chooser) { return u"NEWGAME NAME="_s % chooser % u";"; }
QString Disqualify() { return u"DISQUALIFY"_s; }
QString NavigateTo(QStringView url) { return u"NAVIGATE URL="_s % url % u";"; }
QString SetRandom(QStringView url, int src) { return u"SETRANDOM SRC="_s % QString::number(src) % u";URL=" % url % u";"; }

QString StartGame(const QStringList& words)
{
    QString text = u"STARTGAME COUNT="_s % QString::number(words.size() - 1) % u";";
    for (qsizetype i = 0; i < words.size(); ++i)
        text += u"WORD"_s % QString::number(i) % u"=" % words[i] % u";";
    return text;
}

QString Disconnected() { return u"DISCONNECT"_s; }
QString StatusReply(QStringView server, QStringView players) { return u"STATUS SERVER="_s % server % u";#=" % players % u";"; }

} // namespace linkhop::msg
