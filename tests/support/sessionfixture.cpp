#include "sessionfixture.h"

#include "core/localport.h"
#include "core/udpendpoint.h"
#include "panels/frmchat.h"
#include "panels/frmscores.h"
#include "platform/browser.h"

#include <QLabel>

using namespace Qt::Literals::StringLiterals;

namespace linkhop::test {

RunningSession::RunningSession(Options options) : client(std::move(options.browsers))
{
    client.giveBrowsers = options.withBrowser;
    if (!server.Listen()) qFatal("the scripted server cannot bind port 7200");
    Session& s = S();
    s.SetSite(options.site);
    s.ServerAddress = TestAddress().toString();
    s.PlayerName = options.names.value(0);
    UdpEndpoint probe;
    s.LocalPort = FindLocalPort(probe);
    s.JoinInProgress = options.joinInProgress;
    for (const QString& name : options.names) s.AddPlayer(name);
    s.ResetGameData();
    OpenSessionWindows(s, false, QString());
    game = s.Game();
    browser = client.LastBrowser();
    if (browser) {
        browser->titleFor = [](const QString& url) {
            const qsizetype at = url.indexOf(u"search="_s);
            return at < 0 ? u"Wikipedia, the free encyclopedia"_s
                          : url.mid(at + 7).section(u'&', 0, 0) + u" - Wikipedia, the free encyclopedia"_s;
        };
    }
    // The main page has loaded.
    WaitUntil([&] { return !game || !game->wbMain || !game->wbMain->Busy(); }, 20000);
}

quint16 RunningSession::Port() const { return quint16(client.session->LocalPort.toUInt()); }

bool RunningSession::Deliver(const QStringList& datagrams)
{
    for (const QString& d : datagrams) server.SendTo(d, Port());
    const QString mark = u"mark"_s + QString::number(++marks);
    server.SendTo(u"PING TIME="_s + mark + u';', Port());
    const QString pong = u"PONG NAME="_s + S().PlayerName + u";TIME=" + mark + u';';
    return WaitUntil([&] { return server.ReceivedTexts().contains(pong); }, 15000);
}

QString RunningSession::Transcript() { return S().OpenChat() ? S().OpenChat()->Transcript() : QString(); }

QString RunningSession::ScoreLabel(const char* name)
{
    if (!S().OpenScores()) return u"<closed>"_s;
    auto* label = S().OpenScores()->findChild<QLabel*>(QString::fromLatin1(name));
    return label ? label->text() : u"<none>"_s;
}

} // namespace linkhop::test
