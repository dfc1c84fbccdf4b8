// LinkhopServer: the game server the client starts when a player hosts. Reads its settings from
// the option files beside it, listens on UDP port 7200 and logs one line per event.
#include "core/version.h"
#include "server/gameserver.h"
#include "server/portmapper.h"
#include "server/serverconfig.h"
#include "server/signalpipe.h"

#include <QCommandLineParser>
#include <QCoreApplication>
#include <QDateTime>
#include <cstdio>

using namespace Qt::Literals::StringLiterals;
using namespace linkhop;
using namespace linkhop::server;

namespace {

void Print(FILE* stream, const QString& line)
{
    std::fputs(line.toLocal8Bit().append('\n').constData(), stream);
    std::fflush(stream);
}

void Log(const QString& line)
{
    Print(stdout, QDateTime::currentDateTime().toString(u"yyyy-MM-dd hh:mm:ss.zzz") % u' ' % line);
}

} // namespace

int main(int argc, char** argv)
{
    QCoreApplication app(argc, argv);
    QCoreApplication::setApplicationName(u"LinkhopServer"_s);
    QCoreApplication::setApplicationVersion(ClientVersion.toString());

    QCommandLineParser parser;
    parser.setApplicationDescription(
        u"The Linkhop game server: UDP port 7200, settings from the option files in its own folder.\n"
        "\n"
        "Limits it keeps on the open Internet (docs/server.md has them all):\n"
        "  - each address: 200 datagrams and 64 KiB a second (bursts of 200 and 128 KiB); an address\n"
        "    refused 500 times within a second is blocked in the kernel, 1 s at first, up to 64 s;\n"
        "  - addresses without a player: 5,000 datagrams a second together;\n"
        "  - joins: 8 players and 4 unanswered acceptances an address, which expire after 5 s;\n"
        "    a room is full at 1,000 players or when its player list would outgrow a datagram;\n"
        "  - passwords: 3 wrong guesses an address, then one after 1 s, 2 s, 4 s ... up to 60 s;\n"
        "  - chat: 5 lines at once, then 1 a second and 2 KiB a second a player, within the room's\n"
        "    20,000 datagrams and 2 MiB a second;\n"
        "  - a player's message from an address and port that hold no place (a client of the room\n"
        "    before a restart) is answered \"DISCONNECT\", once in 5 s each and 50 a second in all.\n"
        "Refusal codes: -10 name in use or reading as one in use, -11 name banned or reserved,\n"
        "-20 address already playing, -21 address banned, -100 wrong password, -1 anything else\n"
        "(unusable name, room full, password guessed too often).\n"
        "\n"
        "What it asks the encyclopedia (MediaWiki's API, /w/api.php of --site):\n"
        "  - each page a racer reports: could it be clicked from the page before (a link, a redirect of\n"
        "    any namespace, an image or a file's usage, or a link a template added that the link\n"
        "    tables do not hold yet), from the initial article or the main page, or is it one already\n"
        "    on the route (Back, Forward)? A step that could not puts the racer out with a game line\n"
        "    naming it; the first to report the destination wins once the last steps are answered.\n"
        "    A title no page can have, or more new pages than one every 2 s (after 20), puts the racer\n"
        "    out unasked; a win stands unchecked only when the encyclopedia fails to answer;\n"
        "  - during each round, a shortest route between its words (up to 6 clicks, 400 requests, 60 s),\n"
        "    told to everyone in a game line after the winning route, beside the winner's clicks;\n"
        "  - one request at a time, at most 10 a second after a burst of 10 (610 a minute), 6,000 a\n"
        "    round; each racer's checks 10 and 4 a page; Retry-After obeyed. The User-Agent names the\n"
        "    contact in the option file Contact.dat (default: " LINKHOP_CONTACT ").\n"
        "A round nobody wins ends after 10 minutes (option file RoundMinutes.dat, 0 for never).\n"
        "\n"
        "Behind a home router it asks the router (NAT-PMP, then UPnP) to forward UDP port 7200 while it runs,\n"
        "and tells the hosting player in a game line whether it did, or what to do by hand."_s);
    parser.addHelpOption();
    parser.addVersionOption();
    const QCommandLineOption bindOption(u"bind"_s, u"Listen on ADDRESS only (default: every IPv4 address)."_s,
                                        u"ADDRESS"_s);
    parser.addOption(bindOption);
    const QCommandLineOption siteOption(
        u"site"_s,
        u"Ask the encyclopedia at SITE: a host (HTTPS) or a base address such as http://127.0.0.1:8080; "
        "\"none\" asks none, and every win stands unchecked (default: "_s +
            QStringLiteral(LINKHOP_SITE_HOST) + u")."_s,
        u"SITE"_s, QStringLiteral(LINKHOP_SITE_HOST));
    parser.addOption(siteOption);
    AddPortMapOptions(parser);
    parser.process(app);

    QHostAddress address(QHostAddress::AnyIPv4);
    if (parser.isSet(bindOption) && !address.setAddress(parser.value(bindOption))) {
        Print(stderr, u"LinkhopServer: \"%1\" is no IP address."_s.arg(parser.value(bindOption)));
        return 2;
    }

    QStringList warnings;
    ServerConfig config = LoadServerConfig(QCoreApplication::applicationDirPath(), &warnings);
    config.Site = parser.value(siteOption) == u"none" ? QString() : parser.value(siteOption);
    const PortMapSettings mapping = LoadPortMapSettings(QCoreApplication::applicationDirPath(), &parser, &warnings);
    for (const QString& warning : warnings)
        Print(stderr, u"LinkhopServer: warning: "_s + warning);

    GameServer server(config);
    QObject::connect(&server, &GameServer::EventLogged, &app, &Log);
    PortMapper portMapper(mapping); // stops before the server goes, which it tells
    // The mapper logs from its own thread, also while the loop has stopped; a line is one write.
    QObject::connect(&portMapper, &PortMapper::Logged, &app, &Log, Qt::DirectConnection);
    QObject::connect(&portMapper, &PortMapper::HostNote, &server, &GameServer::TellHost);
    SignalPipe signalPipe;
    QObject::connect(&signalPipe, &SignalPipe::Received, &app, [&](int number) {
        Log(u"signal %1: shutting down"_s.arg(number));
        server.Shutdown();
        portMapper.Stop();
        QCoreApplication::quit();
    });

    const QString where = address.toString() % u':' % QString::number(kServerPort);
    if (!server.Start(address, kServerPort)) {
        Print(stderr, u"LinkhopServer: cannot listen on UDP %1: the port is in use by another program "
                      "(another LinkhopServer?) or the address is not on this machine."_s.arg(where));
        return 1;
    }
    Print(stdout, u"LinkhopServer ready on "_s + where);
    portMapper.Start(address, kServerPort);
    return QCoreApplication::exec();
}
