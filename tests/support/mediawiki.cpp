#include "mediawiki.h"

#include "scriptedserver.h" // TestAddress, WaitUntil

#include <QDir>
#include <QElapsedTimer>
#include <QFile>
#include <QFileInfo>
#include <QNetworkAccessManager>
#include <QNetworkReply>
#include <QStandardPaths>
#include <QTcpServer>
#include <QUuid>
#include <csignal>
#include <unistd.h>

using namespace Qt::Literals::StringLiterals;

namespace linkhop::test {

namespace {

const QString kMediaWiki = u"/usr/share/mediawiki"_s;
constexpr int kScriptMs = 120000;

// The wiki's own link to a title: spaces as "_", the rest escaped as MediaWiki escapes it.
QString ArticlePath(QStringView title)
{
    QString name = title.trimmed().toString().replace(u' ', u'_');
    return u"/wiki/"_s + QString::fromLatin1(QUrl::toPercentEncoding(name, ":/(),!*@$;#"));
}

QString Xml(const QString& text)
{
    return text.toHtmlEscaped();
}

QByteArray ImportFile(const QList<MediaWiki::Page>& pages)
{
    QString xml = u"<mediawiki xml:lang=\"en\">\n"_s;
    // After the installer's own main page, so that each page's last revision is the current one.
    const QDateTime start = QDateTime::currentDateTimeUtc();
    int second = 0;
    for (const MediaWiki::Page& page : pages) {
        xml += u"<page><title>"_s + Xml(page.title) + u"</title>\n"_s;
        for (const QString& text : page.revisions) {
            const QString when = start.addSecs(++second).toString(Qt::ISODate);
            xml += u"<revision><timestamp>"_s + when +
                   u"</timestamp><contributor><username>Linkhop</username>"
                   u"</contributor><text xml:space=\"preserve\">" +
                   Xml(text) + u"</text></revision>\n";
        }
        xml += u"</page>\n"_s;
    }
    xml += u"</mediawiki>\n"_s;
    return xml.toUtf8();
}

} // namespace

namespace {

// In memory where the machine offers it: SQLite waits for the disk on every page written, which
// makes a wiki of a thousand pages take four times as long to build.
QString FolderTemplate()
{
    const QFileInfo shared(u"/dev/shm"_s);
    const QString base = shared.isDir() && shared.isWritable() ? shared.filePath() : QDir::tempPath();
    return QDir(base).filePath(u"linkhop-wiki-XXXXXX"_s);
}

} // namespace

MediaWiki::MediaWiki() : m_folder(FolderTemplate()) {}

MediaWiki::~MediaWiki()
{
    StopServing();
}

bool MediaWiki::Available()
{
    return !QStandardPaths::findExecutable(u"php"_s).isEmpty() &&
           QFile::exists(kMediaWiki + u"/maintenance/install.php"_s);
}

bool MediaWiki::Fail(const QString& error)
{
    m_error = error;
    return false;
}

bool MediaWiki::Run(const QString& script, const QStringList& arguments, const QByteArray& input)
{
    QProcess php;
    QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
    environment.insert(u"MW_CONFIG_FILE"_s, m_folder.filePath(u"LocalSettings.php"_s));
    php.setProcessEnvironment(environment);
    php.setProcessChannelMode(QProcess::MergedChannels);
    const QString path = script.startsWith(u'/') ? script : kMediaWiki + u"/maintenance/"_s + script;
    php.start(u"php"_s, QStringList{path} + arguments);
    if (!input.isEmpty()) php.write(input);
    php.closeWriteChannel();
    if (!php.waitForFinished(kScriptMs) || php.exitStatus() != QProcess::NormalExit || php.exitCode() != 0)
        return Fail(script + u" failed: "_s + QString::fromUtf8(php.readAll().right(2000)));
    return true;
}

bool MediaWiki::Start(const QList<Page>& pages, const QList<Page>& bulk)
{
    QElapsedTimer clock;
    clock.start();
    if (!Available()) return Fail(u"PHP or MediaWiki is not installed (scripts/setup.sh installs them)"_s);
    if (!m_folder.isValid()) return Fail(u"no temporary folder"_s);
    // A free port on the test address, for PHP's server to take.
    {
        QTcpServer probe;
        if (!probe.listen(TestAddress())) return Fail(u"no free port on "_s + TestAddress().toString());
        m_host = TestAddress().toString() + u':' + QString::number(probe.serverPort());
    }
    const QDir folder(m_folder.path());
    for (const QString& sub : {u"data"_s, u"cache"_s, u"root/images"_s, u"upload"_s})
        folder.mkpath(sub);
    if (!QFile::link(kMediaWiki, folder.filePath(u"root/w"_s)))
        return Fail(u"cannot link the wiki's scripts"_s);
    QFile::copy(QStringLiteral(LINKHOP_ICON_PNG), folder.filePath(u"root/linkhop.png"_s));

    if (!Run(u"install.php"_s,
             {u"--dbtype=sqlite"_s, u"--dbpath="_s + folder.filePath(u"data"_s), u"--dbname=wiki"_s,
              u"--server=http://"_s + m_host, u"--scriptpath=/w"_s, u"--lang=en"_s, u"--skins=Vector"_s,
              u"--pass="_s + QUuid::createUuid().toString(QUuid::WithoutBraces),
              u"--confpath="_s + folder.path(), u"Wikipedia"_s, u"Admin"_s}))
        return false;
    QFile settings(folder.filePath(u"LocalSettings.php"_s));
    if (!settings.open(QIODevice::Append)) return Fail(u"cannot extend LocalSettings.php"_s);
    settings.write("\n$linkhopWiki = '" + folder.path().toUtf8() +
                   "';\nrequire '" LINKHOP_MEDIAWIKI_FILES "/settings.php';\n");
    settings.close();

    QList<Page> all = pages;
    // The main page carries the English site's own title, without " - ".
    all.prepend({u"MediaWiki:Pagetitle-view-mainpage"_s, {u"Wikipedia, the free encyclopedia"_s}});
    QFile dump(folder.filePath(u"pages.xml"_s));
    if (!dump.open(QIODevice::WriteOnly) || dump.write(ImportFile(all)) < 0)
        return Fail(u"cannot write pages"_s);
    dump.close();
    if (!Run(u"importDump.php"_s, {u"--quiet"_s, dump.fileName()})) return false;
    const bool withImage = std::any_of(pages.cbegin(), pages.cend(),
                                       [](const Page& p) { return p.title == u"File:Linkhop.png"; });
    if (withImage) {
        QFile::copy(QStringLiteral(LINKHOP_ICON_PNG), folder.filePath(u"upload/Linkhop.png"_s));
        if (!Run(u"importImages.php"_s,
                 {u"--skip-dupes"_s, u"--extensions=png"_s, folder.filePath(u"upload"_s)}))
            return false;
    }
    if (!Run(u"rebuildrecentchanges.php"_s, {})) return false;
    if (!bulk.isEmpty()) {
        QFile lines(folder.filePath(u"bulk.txt"_s));
        if (!lines.open(QIODevice::WriteOnly)) return Fail(u"cannot write pages"_s);
        for (const Page& page : bulk)
            lines.write(page.title.toUtf8() + '\n' + page.revisions.value(0).simplified().toUtf8() + '\n');
        lines.close();
        if (!Run(QStringLiteral(LINKHOP_MEDIAWIKI_FILES "/bulk.php"),
                 {folder.filePath(u"data/wiki.sqlite"_s), lines.fileName()}))
            return false;
    }
    if (!Serve()) return false;
    m_buildMs = clock.elapsed();
    return true;
}

bool MediaWiki::Edit(const QString& title, const QString& text)
{
    return Run(u"edit.php"_s, {u"--summary=Linkhop"_s, title}, text.toUtf8());
}

bool MediaWiki::Serve()
{
    const QDir folder(m_folder.path());
    QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
    environment.insert(u"MW_CONFIG_FILE"_s, folder.filePath(u"LocalSettings.php"_s));
    // Pages load their styles and scripts in parallel.
    environment.insert(u"PHP_CLI_SERVER_WORKERS"_s, u"4"_s);
    m_server.setProcessEnvironment(environment);
    m_server.setProcessChannelMode(QProcess::MergedChannels);
    m_server.setStandardOutputFile(folder.filePath(u"server.log"_s));
    // PHP's workers outlive their parent when it is killed: a shell in a process group of its own
    // holds them and ends the whole group once its input closes, which happens when this fixture
    // stops serving or the test program dies, however it dies.
    m_server.setChildProcessModifier([] { ::setsid(); });
    const QStringList php{
        u"php"_s, u"-d"_s, u"opcache.enable_cli=1"_s,  u"-S"_s,
        m_host,   u"-t"_s, folder.filePath(u"root"_s), QStringLiteral(LINKHOP_MEDIAWIKI_FILES "/router.php")};
    m_server.start(u"sh"_s, QStringList{u"-c"_s, u"\"$@\" & read -r _; kill -TERM 0"_s, u"sh"_s} + php);
    if (!m_server.waitForStarted()) return Fail(u"PHP's web server does not start"_s);
    // Ready once the main page comes: the first request also builds the language cache.
    QNetworkAccessManager network;
    bool ready = false;
    QElapsedTimer clock;
    clock.start();
    while (!ready && clock.elapsed() < 30000 && m_server.state() == QProcess::Running) {
        QNetworkReply* reply = network.get(QNetworkRequest(QUrl(Url(u"/wiki/Main_Page"))));
        WaitUntil([&] { return reply->isFinished(); }, 30000);
        ready = reply->error() == QNetworkReply::NoError;
        reply->deleteLater();
        if (!ready) WaitUntil([] { return false; }, 100);
    }
    if (!ready) {
        QFile log(folder.filePath(u"server.log"_s));
        log.open(QIODevice::ReadOnly);
        return Fail(u"the wiki does not answer: "_s + QString::fromUtf8(log.readAll().right(2000)));
    }
    return true;
}

void MediaWiki::StopServing()
{
    if (m_server.state() == QProcess::NotRunning) return;
    m_server.closeWriteChannel();
    if (!m_server.waitForFinished(5000)) {
        ::kill(-pid_t(m_server.processId()), SIGKILL);
        m_server.waitForFinished(3000);
    }
}

QString MediaWiki::Url(QStringView pathAndQuery) const
{
    return u"http://"_s % m_host % pathAndQuery;
}

QString MediaWiki::ArticleUrl(QStringView title) const
{
    return Url(ArticlePath(title));
}

QList<MediaWiki::Page> MediaWiki::NumberedPages(int count)
{
    QList<Page> pages;
    for (int i = 1; i <= count; ++i)
        pages.append({u"Page "_s + QString::number(i),
                      {u"Page number %1. Next: [[Page %2]]."_s.arg(i).arg(i % count + 1)}});
    return pages;
}

QList<MediaWiki::Page> MediaWiki::StandardPages()
{
    const auto page = [](const QString& title, const QString& text) { return Page{title, {text}}; };
    return {
        page(u"Main Page"_s,
             u"Welcome to the test encyclopedia. Start with [[Apple]], [[Banana]] or [[Mercury]]."_s),
        {u"Apple"_s,
         {u"An '''apple''' is a fruit."_s,
          u"An '''apple''' is the fruit of the apple tree, a kind of [[Fruit]], sweeter than a [[banana]] "
          u"and grown far from [[Big Apple|the Big Apple]]. See also [[Mercury]] and [[Nowhere at all]].\n\n"
          u"Pages of every kind: [[Talk:Apple]], [[User talk:Ann]], [[User:Ann]], [[List of fruits]], "
          u"[[:Category:Fruit]], [[Help:Contents]], [[Portal:Food]], [[Wikipedia:About]], [[1984]], "
          u"[[Search engine]], [[AT&T]], [[C++]], [[Café]], [[Łódź]], [[Banana#Cultivation|growing "
          u"bananas]], "
          u"[[#History|this page's history section]], [http://example.invalid/apple an external page].\n\n"
          u"Tools: [[Special:RecentChanges]], [[Special:WhatLinksHere/Apple]], [[Special:Random]], "
          u"[{{fullurl:Apple|action=info}} information], [{{fullurl:Apple|action=history}} history], "
          u"[{{fullurl:Apple|diff=prev&oldid={{REVISIONID}}}} last change], "
          u"[{{fullurl:Apple|oldid={{REVISIONID}}}} this revision].\n\n"
          u"[[File:Linkhop.png|64px]]\n\n== History ==\nApples have a long history.\n\n[[Category:Fruit]]"_s}},
        page(u"Banana"_s, u"A '''banana''' is a [[Fruit]]. Compare [[Apple]]; see [[Talk:Apple]].\n\n"
                          u"== Cultivation ==\nBananas grow in warm places."_s),
        page(u"Fruit"_s, u"'''Fruit''': [[Apple]], [[Banana]], [[Mercury]].\n\n[[Category:Fruit]]"_s),
        page(u"New York City"_s, u"'''New York City''', the Big Apple. [[Apple]]"_s),
        page(u"Big Apple"_s, u"#REDIRECT [[New York City]]"_s),
        page(u"Mercury"_s, u"'''Mercury''' may refer to:\n* [[Mercury (planet)]]\n* [[Mercury (element)]]\n"
                           u"{{Disambiguation}}"_s),
        page(u"Template:Disambiguation"_s,
             u"''This disambiguation page lists articles of the same name.''"_s),
        page(u"Mercury (planet)"_s, u"The planet '''Mercury'''. [[Apple]]"_s),
        page(u"Mercury (element)"_s, u"The element '''mercury'''. [[Banana]]"_s),
        page(u"List of fruits"_s, u"* [[Apple]]\n* [[Banana]]"_s),
        page(u"Talk:Apple"_s, u"Talk about the [[Apple]]."_s),
        page(u"User:Ann"_s, u"Ann's page. [[Apple]]"_s),
        page(u"User talk:Ann"_s, u"Hello Ann. [[Apple]]"_s),
        page(u"Category:Fruit"_s, u"Fruits."_s),
        page(u"Help:Contents"_s, u"How to read. [[Apple]]"_s),
        page(u"Portal:Food"_s, u"Food. [[Apple]]"_s),
        page(u"Wikipedia:About"_s, u"About this encyclopedia. [[Apple]]"_s),
        page(u"File:Linkhop.png"_s, u"The Linkhop icon. [[Apple]]"_s),
        page(u"1984"_s, u"'''1984''' was a leap year. [[Apple]]"_s),
        page(u"Search engine"_s, u"A '''search engine''' finds pages. [[Apple]]"_s),
        page(u"AT&T"_s, u"'''AT&T''' is a telephone company. [[C++]] [[Łódź]] [[Apple]]"_s),
        page(u"C++"_s, u"'''C++''' is a programming language. [[Café]] [[AT&T]]"_s),
        page(u"Café"_s, u"A '''café''' serves coffee. [[Łódź]] [[C++]]"_s),
        page(u"Łódź"_s, u"'''Łódź''' is a city in Poland. [[Café]] [[Apple]]"_s),
        page(u"Volcano"_s, u"A '''volcano'''. [[Glacier]] [[Apple]]"_s),
        page(u"Glacier"_s, u"A '''glacier'''. [[Lagoon]] [[Apple]]"_s),
        page(u"Desert"_s, u"A '''desert'''. [[Canyon]] [[Apple]]"_s),
        page(u"Lagoon"_s, u"A '''lagoon'''. [[Canyon]] [[Apple]]"_s),
        page(u"Canyon"_s, u"A '''canyon'''. [[Volcano]] [[Apple]]"_s),
    };
}

} // namespace linkhop::test
