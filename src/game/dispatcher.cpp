#include "dispatcher.h"

#include "core/fault.h"
#include "core/messages.h"
#include "core/wire.h"
#include "game/frmgame.h"
#include "game/session.h"
#include "panels/frmchat.h"
#include "panels/frmscores.h"
#include "panels/frmwinner.h"
#include "platform/browser.h"
#include "platform/eventwait.h"

#include <QPointer>

using namespace Qt::Literals::StringLiterals;

namespace linkhop {

namespace {

const QString kGame = msg::GameSpeaker.toString();

// The bytes of the field that GetParam reads from the decoded datagram: keys are ASCII and no escape
// run holds one, so the bytes find the same field without a 64 KiB datagram being decoded. Empty
// when the field is missing or unterminated.
QByteArrayView FieldBytes(QByteArrayView datagram, QByteArrayView key)
{
    for (qsizetype from = 0;;) {
        const qsizetype at = datagram.indexOf(key, from);
        if (at < 0) return {};
        const qsizetype equals = at + key.size();
        if (equals < datagram.size() && datagram[equals] == '=') {
            const qsizetype end = datagram.indexOf(';', equals);
            return end < 0 ? QByteArrayView() : datagram.sliced(equals + 1, end - equals - 1);
        }
        from = at + 1;
    }
}

} // namespace

void SessionDispatcher::Handle(const QString& message)
{
    // Once the server has disconnected this client the session is over: nothing it sends while
    // the notice shows may start a round or another wait under the notice.
    if (m_disconnecting) return;
    QString reply;
    try {
        reply = React(message, Verb(message));
    } catch (const Fault&) {
        return;
    }
    if (!reply.isEmpty() && !m_session.Ended()) m_game.SendData(reply);
}

UdpEndpoint::Triage SessionDispatcher::TriageOf(QByteArrayView datagram)
{
    using Triage = UdpEndpoint::Triage;
    // Told by the verb's bytes, without decoding the datagram; the busiest first.
    const qsizetype space = datagram.indexOf(' ');
    const QLatin1StringView verb(space < 0 ? datagram : datagram.first(space));
    if (verb == verb::SCOREIS || verb == verb::PINGIS) {
        // A score or a ping that sets every field it carries, so that a later one for the same
        // player leaves nothing of it behind. One that would fault half-way is as good as none.
        const auto number = [&](QByteArrayView key) {
            Number(QString::fromLatin1(FieldBytes(datagram, key)));
        };
        try {
            if (verb == verb::SCOREIS) {
                number("WINS");
                number("CLICK");
                number("RCLICK");
            } else {
                number("PING");
            }
        } catch (const Fault&) {
            return {};
        }
        return {Triage::Latest, QString(verb) % u' ' % FromWire(FieldBytes(datagram, "NAME"))};
    }
    if (verb == verb::PING) return {Triage::Latest, verb::PING.toString()};
    // A game line, as the chat shows it: under the name its first "NAME=" gives.
    if (verb == verb::CHAT)
        return {FieldBytes(datagram, "NAME") == "GAME" ? Triage::Kept : Triage::Expendable, {}};
    for (const QStringView kept :
         {verb::STARTGAME, verb::WINNER, verb::NEWGAME, verb::DISQUALIFY, verb::PATHIS, verb::SETRANDOM,
          verb::NAVIGATE, verb::JOIN, verb::LEAVE, verb::DROP, verb::MESSAGE, verb::DISCONNECT})
        if (verb == kept) return {Triage::Kept, {}};
    return {};
}

void SessionDispatcher::Open(const QString& url)
{
    // A session may have no browser (its factory gave none): the reaction goes on without a page.
    if (m_game.wbMain) m_game.wbMain->Navigate(url);
}

void SessionDispatcher::ShowWordChooser()
{
    frmWinner& chooser = m_session.Winner();
    chooser.show();
    chooser.raise();
    chooser.activateWindow();
}

QString SessionDispatcher::React(const QString& message, const QString& verb)
{
    Session& s = m_session;
    const auto param = [&](QStringView key) { return GetParam(message, key); };

    if (verb == verb::PING) return msg::Pong(s.PlayerName, param(u"TIME"));

    if (verb == verb::DISCONNECT) {
        m_disconnecting = true;
        s.prompts().MessageBox(u"You have been disconnected from the game."_s, Icon::Information);
        if (s.Ended()) return {};
        m_game.Disconnected = true;
        m_game.close();
        return {};
    }

    if (verb == verb::SCOREIS) {
        const qint32 i = s.FindPlayer(param(u"NAME"));
        s.Player(i).Wins = Number(param(u"WINS"));
        s.Player(i).Clicks = Number(param(u"CLICK"));
        s.Player(i).RoundClicks = Number(param(u"RCLICK"));
        s.Player(i).InGame = param(u"INGAME");
        s.Scores().UpdateListSoon(false, true, false, false);
        return {};
    }

    if (verb == verb::PINGIS) {
        const qint32 i = s.FindPlayer(param(u"NAME"));
        s.Player(i).Ping = Number(param(u"PING"));
        s.Scores().UpdateListSoon(false, false, true, false);
        return {};
    }

    if (verb == verb::MESSAGE) {
        s.Chat().AddChat(kGame, MessageBody(message));
        return {};
    }

    if (verb == verb::JOIN || verb == verb::LEAVE || verb == verb::DROP) {
        const QString name = param(u"NAME");
        if (verb == verb::JOIN) {
            s.AddPlayer(name);
            s.Chat().AddChat(kGame, name + u" has joined the game."_s);
        } else {
            s.RemovePlayer(name);
            s.Chat().AddChat(kGame, name + (verb == verb::LEAVE ? u" has left the game."_s
                                                               : u" was dropped from the game."_s));
        }
        s.Chat().UpdateList();
        s.Scores().UpdateList(true, true, true, true, false);
        return {};
    }

    if (verb == verb::CHAT) {
        s.Chat().AddChat(param(u"NAME"), ChatText(message));
        return {};
    }

    if (verb == verb::TIME) {
        s.Chat().AddChat(u"Current Time"_s, param(u"TIME") + u" on "_s + param(u"DATE"));
        return {};
    }

    if (verb == verb::WINNER) {
        const QString name = param(u"NAME");
        const qint32 i = s.FindPlayer(name);
        s.InRound = false;
        s.Chat().AddChat(kGame, name + u" has won the round in "_s + QString::number(s.Player(i).RoundClicks) +
                                    u" clicks!"_s);
        s.Player(i).Wins += 1;
        s.Scores().UpdateList(false, true, false, false, false);
        if (name == s.PlayerName) {
            if (s.RoutePath.isEmpty()) throw Fault{"no route to send"};
            m_game.SendData(msg::SendMyPath(s.Player(i).Name, s.RoutePath.chopped(1)));
            ShowWordChooser();
        }
        return {};
    }

    if (verb == verb::PATHIS) {
        QString route = param(u"PATH");
        route.replace(u'\r', u" --> "_s);
        s.Chat().AddChat(kGame, u"The winning route was: \r\n"_s + route);
        s.Chat().AddChat(kGame, param(u"NAME") + u" now chooses the next words."_s);
        return {};
    }

    if (verb == verb::NEWGAME) {
        s.ResetGameData();
        s.ChooserName = param(u"NAME");
        s.InRound = false;
        if (s.PlayerName == s.ChooserName) ShowWordChooser();
        return {};
    }

    if (verb == verb::DISQUALIFY) {
        const qint32 i = s.FindPlayer(s.PlayerName);
        s.Player(i).InGame = u"no"_s;
        Open(s.Site().MainPage());
        m_game.SendData(msg::DisqualifiedNotice(s.PlayerName, s.CurrentArticle));
        return {};
    }

    if (verb == verb::NAVIGATE) {
        Open(s.Site().Search(param(u"URL")));
        return {};
    }

    if (verb == verb::SETRANDOM) {
        const QString url = param(u"URL");
        const QString src = param(u"SRC");
        Open(s.Site().Search(url));
        m_game.Navigation.LastReported = url;
        if (src == u"1"_s)
            s.Chat().AddChat(kGame, u"Initial page randomized: \""_s + url + u'"');
        else if (src == u"2"_s)
            s.Chat().AddChat(kGame, u"Destination page randomized: \""_s + url + u'"');
        if (frmWinner* chooser = s.OpenWinner(); chooser && chooser->isVisible()) {
            if (src == u"1"_s)
                chooser->txtInitial->setText(url);
            else if (src == u"2"_s)
                chooser->txtDestination->setText(url);
        }
        return {};
    }

    if (verb == verb::STARTGAME) StartGame(message);
    return {};
}

void SessionDispatcher::StartGame(const QString& message)
{
    Session& s = m_session;
    s.CurrentArticle = GetParam(message, u"WORD0");
    s.RoutePath = s.CurrentArticle + u'\r';
    Open(s.Site().Search(s.CurrentArticle));

    // Other datagrams, timer ticks and the browser's notifications run meanwhile, to completion.
    QPointer<Browser> browser = m_game.wbMain;
    if (m_waitDepth < kMaxNestedWaits) {
        ++m_waitDepth;
        LetEventsRun();
        LetEventsRunUntil([&] { return s.Ended() || !browser || !browser->Busy(); }, m_firstPageWaitMs);
        --m_waitDepth;
    }
    if (s.Ended()) return;

    for (qint32 i = 1; i <= s.PlayerCount(); ++i) {
        s.Player(i).RoundClicks = 0;
        s.Player(i).InGame = u"yes"_s;
    }
    s.InRound = true;
    s.Chat().AddChat(kGame, u"The game has begun!"_s);
    s.Words = WordList::FromStartGame(message);
    s.TargetWordIndex = 1;
    s.Scores().UpdateList(false, false, false, true, false);
}

} // namespace linkhop
