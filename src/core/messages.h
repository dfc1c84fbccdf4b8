#pragma once

#include <QString>
#include <QStringList>
#include <QStringView>

// The message catalogue: every verb once, and one builder per message that either side sends.
// Builders concatenate the literal pieces and values in catalogue order, nothing else.
namespace linkhop::verb {

inline constexpr QStringView CONNECT = u"CONNECT";
inline constexpr QStringView CONNECTACCEPT = u"CONNECTACCEPT";
inline constexpr QStringView CONNECTREJECT = u"CONNECTREJECT";
inline constexpr QStringView NEEDPWD = u"NEEDPWD";
inline constexpr QStringView ISHOST = u"ISHOST";
inline constexpr QStringView MESSAGE = u"MESSAGE";
inline constexpr QStringView PLAYERLIST = u"PLAYERLIST";
inline constexpr QStringView GETPLAYERLIST = u"GETPLAYERLIST";
inline constexpr QStringView GETWORDS = u"GETWORDS";
inline constexpr QStringView DISCONNECT = u"DISCONNECT";
inline constexpr QStringView GETSCORE = u"GETSCORE";
inline constexpr QStringView PINGME = u"PINGME";
inline constexpr QStringView PING = u"PING";
inline constexpr QStringView PONG = u"PONG";
inline constexpr QStringView PINGIS = u"PINGIS";
inline constexpr QStringView SCOREIS = u"SCOREIS";
inline constexpr QStringView NAVIGATE = u"NAVIGATE";
inline constexpr QStringView SENDMYPATH = u"SENDMYPATH";
inline constexpr QStringView PATHIS = u"PATHIS";
inline constexpr QStringView CHAT = u"CHAT";
inline constexpr QStringView TIME = u"TIME";
inline constexpr QStringView GETRANDOM = u"GETRANDOM";
inline constexpr QStringView SETRANDOM = u"SETRANDOM";
inline constexpr QStringView SETWORDS = u"SETWORDS";
inline constexpr QStringView STARTGAME = u"STARTGAME";
inline constexpr QStringView STATUS = u"STATUS";
inline constexpr QStringView JOIN = u"JOIN";
inline constexpr QStringView LEAVE = u"LEAVE";
inline constexpr QStringView DROP = u"DROP";
inline constexpr QStringView WINNER = u"WINNER";
inline constexpr QStringView NEWGAME = u"NEWGAME";
inline constexpr QStringView DISQUALIFY = u"DISQUALIFY";

} // namespace linkhop::verb

namespace linkhop::msg {

// Speaker name of game notices in "CHAT".
inline constexpr QStringView GameSpeaker = u"GAME";

// --- client to server ---------------------------------------------------------------------------
QString Connect(QStringView version, QStringView name, QStringView port);
QString ConnectWithPassword(QStringView version, QStringView name, QStringView password);
QString GetPlayerList(QStringView port);
QString GetWords(QStringView name);
QString Disconnect(QStringView name);
QString GetScore(QStringView port, QStringView name);
QString PingMe(QStringView port);
QString Pong(QStringView name, QStringView time);
QString Navigate(QStringView name, QStringView url);
QString SendMyPath(QStringView name, QStringView path);
QString Chat(QStringView name, QStringView text);
QString DisqualifiedNotice(QStringView name, QStringView article);
QString TimeRequest(QStringView port);
QString GetRandom(int src);
QString SetWords(QStringView initial, QStringView destination);
QString Status(QStringView server, QStringView port);

// --- server to client ---------------------------------------------------------------------------
QString ConnectAccept(bool playing);
QString ConnectRejectVersion(QStringView requiredVersion);
QString ConnectRejectError(QStringView code);
QString NeedPassword();
QString IsHost(QStringView name);
QString Message(QStringView text);
QString PlayerList(const QStringList& names);
QString Ping(QStringView time);
QString PingIs(QStringView name, qint32 ping);
QString ScoreIs(QStringView name, qint32 wins, qint32 clicks, qint32 roundClicks, bool inGame);
QString Join(QStringView name);
QString Leave(QStringView name);
QString Drop(QStringView name);
QString TimeIs(QStringView time, QStringView date);
QString Winner(QStringView name);
QString PathIs(QStringView path, QStringView nextChooser);
QString NewGame(QStringView chooser);
QString Disqualify();
QString NavigateTo(QStringView url);
QString SetRandom(QStringView url, int src);
QString StartGame(const QStringList& words);
QString Disconnected();
QString StatusReply(QStringView server, QStringView players);

} // namespace linkhop::msg
