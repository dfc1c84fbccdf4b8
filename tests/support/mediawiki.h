#pragma once

#include <QList>
#include <QProcess>
#include <QString>
#include <QStringList>
#include <QTemporaryDir>

namespace linkhop::test {

// The real encyclopedia engine: Debian's MediaWiki, installed afresh in a temporary folder (SQLite,
// named "Wikipedia", articles under /wiki/, the Vector 2022 skin, the main page titled as on the
// English site), its pages written by importing them, and served by PHP's built-in web server on
// the test address and a free port. The server ends with the fixture, or with the test program.
class MediaWiki final
{
public:
    struct Page
    {
        QString title;
        QStringList revisions; // wikitext, oldest first
    };

    MediaWiki();
    ~MediaWiki();
    Q_DISABLE_COPY_MOVE(MediaWiki)

    // Whether PHP and the mediawiki package are installed.
    static bool Available();
    // Installs the wiki with these pages, then serves it. Errors are in Error(). `bulk` pages go
    // straight into the database with their link tables, thousands a second, where importing them
    // takes a minute: articles with one revision whose wikitext holds only plain links ("[[T]]",
    // "[[T|text]]") or is "#REDIRECT [[T]]".
    bool Start(const QList<Page>& pages = StandardPages(), const QList<Page>& bulk = {});
    // Saves a new revision of a page, as an editor would. The pages that use it (a template) keep
    // their link tables until the job queue runs, which it never does here: as on a busy site
    // minutes after an edit, their links differ from what a reader sees.
    bool Edit(const QString& title, const QString& text);
    // Ends the web server (the encyclopedia goes away); Serve starts it again on the same port.
    void StopServing();
    bool Serve();

    QString Error() const { return m_error; }
    QString Host() const { return m_host; } // "address:port", a session's site host
    QString Url(QStringView pathAndQuery) const;
    QString ArticleUrl(QStringView title) const; // as the wiki writes its links
    qint64 BuildMs() const { return m_buildMs; }

    // The test encyclopedia: articles that link to each other, and one page of every kind the game
    // meets (redirect, disambiguation, list, talk and user pages, category, help, portal, project
    // page, file with its image, a number, "Search engine", titles needing escapes).
    static QList<Page> StandardPages();
    // "Page 1" ... "Page <count>", each linking to the next, the last back to Page 1.
    static QList<Page> NumberedPages(int count);

private:
    bool Run(const QString& script, const QStringList& arguments, const QByteArray& input = {});
    bool Fail(const QString& error);

    QTemporaryDir m_folder;
    QProcess m_server;
    QString m_host;
    QString m_error;
    qint64 m_buildMs = 0;
};

} // namespace linkhop::test
