// The real browser in a game window on the real encyclopedia engine (MediaWiki on loopback),
// against a scripted server: what the client reports of every kind of page, the browser's own
// notifications, the word chooser's verification, and whole rounds.
#include "browserlog.h"
#include "mediawiki.h"
#include "othersite.h"
#include "panels/frmwinner.h"
#include "platform/webenginebrowser.h"
#include "sessionfixture.h"

#include <QWebEnginePage>
#include <QWebEngineView>
#include <QtTest>

using namespace Qt::Literals::StringLiterals;
using namespace linkhop;
using namespace linkhop::test;

class tst_rounds : public QObject
{
    Q_OBJECT

    MediaWiki m_wiki;
    OtherSite m_other;
    std::unique_ptr<RunningSession> m_client;
    std::unique_ptr<BrowserLog> m_log;
    WebEngineBrowser* m_browser = nullptr;
    const QString kSuffix = u" - Wikipedia, the free encyclopedia"_s;
    const QStringList kWords =
        u"list history edit talk category wiki help special user portal search number nowiki"_s.split(u' ');

    Session& S() { return m_client->S(); }
    QStringList Reports() const { return m_client->Sent(u"NAVIGATE"_s); }
    QString Report(int n) { return m_client->server.WaitForVerb(u"NAVIGATE"_s, n, 15000); }
    QString Reported(const QString& page) { return u"NAVIGATE NAME=ann;URL="_s + page + u';'; }
    bool Open(const QString& url, const QString& title)
    {
        m_browser->Navigate(url);
        return m_log->WaitForTitle(title);
    }
    bool Click(const QString& selector, const QString& title)
    {
        return ClickLink(*m_browser, selector) && m_log->WaitForTitle(title);
    }
    bool Click(QStringView article) { return Click(LinkTo(article), article + kSuffix); }
    bool StartRound(const QString& initial, const QString& destination)
    {
        m_client->server.SendTo(u"STARTGAME COUNT=1;WORD0="_s + initial + u";WORD1=" + destination + u';',
                                m_client->Port());
        return WaitUntil([&] { return S().InRound; }, 20000) && m_log->WaitForTitle(initial + kSuffix);
    }
    // Types into the encyclopedia's search box, and presses Enter, as a player would.
    bool Search(const QString& text, bool enter = true)
    {
        QVariant focused;
        m_browser->Page()->runJavaScript(
            u"(function () { var e = document.querySelector('input[name=search]'); if (!e) return false;"
            u" e.focus(); return document.activeElement === e; })()"_s,
            [&](const QVariant& result) { focused = result; });
        if (!WaitUntil([&] { return focused.isValid(); }) || !focused.toBool()) return false;
        QWidget* keys = m_browser->findChild<QWebEngineView*>()->focusProxy();
        QTest::keyClicks(keys, text);
        if (enter) QTest::keyClick(keys, Qt::Key_Return);
        return true;
    }

    // Whether a script module of the encyclopedia has come and run on the page.
    bool Ready(QStringView module)
    {
        return Evaluate(*m_browser, u"window.mw && mw.loader.getState('"_s + module + u"') === 'ready'");
    }
    // One thing a reader does that the page's scripts answer, done and seen done: "view:<picture>"
    // opens the image viewer on the picture's first showing, "next", "previous" and "close" work
    // the viewer; "footnote" and "backlink" follow a footnote's mark and its way back;
    // "toc:<section>" follows the table of contents; "fold" works the navbox's toggle, "unfold" the
    // category tree's; "back" and "forward" the browser's history.
    bool Do(const QString& step)
    {
        QWebEnginePage* page = m_browser->Page();
        const QUrl before = page->url();
        const auto moved = [&](const std::function<bool(const QString&)>& to) {
            return WaitUntil([&] { return page->url() != before && to(page->url().fragment()); });
        };
        const auto viewing = [](const QString& fragment) { return fragment.startsWith(u"/media/File:"); };
        if (step.startsWith(u"view:")) {
            const QString file = step.mid(5).replace(u' ', u'_');
            const QString name = step.mid(5).section(u'.', 0, -2);
            // Until its script has come, a picture is a link to its file's page.
            return Ready(u"mmv.bootstrap.autostart") &&
                   Press(*m_browser, u"#mw-content-text a[href=\"/wiki/File:"_s + file + u"\"] img") &&
                   moved([&](const QString& f) { return f == u"/media/File:" + file; }) &&
                   WaitUntil([&] { return page->title().startsWith(name + u" - "); });
        }
        if (step == u"next" || step == u"previous")
            return Press(*m_browser, u".mw-mmv-"_s + (step == u"next" ? u"next" : u"prev") + u"-image") &&
                   moved(viewing);
        if (step == u"close") {
            QTest::keyClick(m_browser->findChild<QWebEngineView*>()->focusProxy(), Qt::Key_Escape);
            return moved([&](const QString& f) { return !viewing(f); });
        }
        if (step == u"footnote" || step == u"backlink") {
            const bool mark = step == u"footnote";
            return ClickLink(*m_browser, mark ? u"sup.reference a"_s : u".mw-cite-backlink a"_s) &&
                   moved([&](const QString& f) { return f.startsWith(mark ? u"cite_note" : u"cite_ref"); });
        }
        if (step.startsWith(u"toc:"))
            return ClickLink(*m_browser, u"#mw-panel-toc a[href=\"#"_s + step.mid(4) + u"\"]") &&
                   moved([&](const QString& f) { return f == step.mid(4); });
        if (step == u"fold") {
            const QString folded = u"document.querySelector('.navbox').classList.contains('mw-collapsed')"_s;
            const bool wasFolded = Evaluate(*m_browser, folded, 0);
            return Press(*m_browser, u".navbox .mw-collapsible-toggle"_s) &&
                   Evaluate(*m_browser, (wasFolded ? u"!"_s : QString()) + folded);
        }
        if (step == u"unfold")
            return Ready(u"ext.categoryTree") &&
                   Press(*m_browser, u".CategoryTreeToggle[data-ct-title=\"Pears\"]"_s) &&
                   Evaluate(*m_browser,
                            u"document.querySelector('.CategoryTreeChildren a[href=\"/wiki/Quince\"]')"_s);
        if (step == u"back" || step == u"forward") {
            page->triggerAction(step == u"back" ? QWebEnginePage::Back : QWebEnginePage::Forward);
            return moved([](const QString&) { return true; }) &&
                   WaitUntil([&] { return !m_browser->Busy(); });
        }
        return false;
    }

private Q_SLOTS:
    void initTestCase()
    {
        QVERIFY2(m_wiki.Start(), qPrintable(m_wiki.Error()));
        qInfo("the wiki was built and served in %lld ms", m_wiki.BuildMs());
        QVERIFY(m_other.Listen());
    }
    void init()
    {
        m_client = std::make_unique<RunningSession>(
            RunningSession::Options{.names = {u"ann"_s, u"bo"_s}, .encyclopedia = m_wiki.Host()});
        // Wide enough that the skin shows its tabs and search box rather than menus.
        m_client->game->resize(1280, 900);
        m_browser = qobject_cast<WebEngineBrowser*>(m_client->game->wbMain);
        m_log = std::make_unique<BrowserLog>(*m_browser);
    }
    void cleanup() { m_client.reset(); } // before the next one binds the server port

    // From an article, every kind of page a player can click to, and what the client reports.
    void pagesOfEveryKind_data()
    {
        QTest::addColumn<QString>("first"); // a step of Do() before the click; empty: none
        QTest::addColumn<QString>("selector");
        QTest::addColumn<QString>("report"); // empty: nothing
        const auto link = [](const char* tag, const char* title, const char* report) {
            QTest::newRow(tag) << QString() << LinkTo(QString::fromUtf8(title)) << QString::fromUtf8(report);
        };
        const auto element = [](const char* tag, const char* selector, const char* report) {
            QTest::newRow(tag) << QString() << QString::fromUtf8(selector) << QString::fromUtf8(report);
        };
        link("article", "Banana", "Banana");
        link("redirect", "Big Apple", "New York City");
        element("red link", "#mw-content-text a.new", "edit");
        link("disambiguation", "Mercury", "Mercury");
        link("another article's section", "Banana#Cultivation", "Banana");
        // A picture opens the image viewer; its "More details" leads to the file's page.
        QTest::newRow("file") << u"view:Linkhop.png"_s << u".mw-mmv-description-page-button:not(.empty)"_s
                              << u"File:Linkhop.png"_s;
        link("talk", "Talk:Apple", "talk");
        link("user talk", "User talk:Ann", "User talk:Ann");
        link("user", "User:Ann", "user");
        link("list", "List of fruits", "list");
        link("category", "Category:Fruit", "category");
        link("help", "Help:Contents", "help");
        link("portal", "Portal:Food", "portal");
        link("project page", "Wikipedia:About", "wiki");
        link("number", "1984", "number");
        link("search engine", "Search engine", "search");
        link("ampersand", "AT&T", "AT&T");
        link("plus", "C++", "C++");
        link("accent", "Café", "Café");
        link("beyond Windows-1252", "Łódź", "Łódź");
        link("recent changes", "Special:RecentChanges", "special");
        link("what links here", "Special:WhatLinksHere/Apple", "special");
        link("random article", "Special:Random", "special");
        element("page information", "#mw-content-text a[href$='action=info']", "special");
        element("history tab", "#ca-history a", "history");
        element("history link", "#mw-content-text a[href$='action=history']", "history");
        element("diff", "#mw-content-text a[href*='diff=prev']", "history");
        element("old revision", "#mw-content-text a[href*='oldid=']:not([href*='diff='])", "history");
        element("edit tab", "#ca-edit a", "edit");
        // The visual editor opens in place, by script: an editor all the same.
        element("visual editor", "#ca-ve-edit a", "edit");
        element("section anchor", "#mw-content-text a[href='#History']", "");
        element("main page", "a.mw-logo", "");
        element("external", "#mw-content-text a.external[href^='http://example.invalid']", "nowiki");
    }
    void pagesOfEveryKind()
    {
        QFETCH(QString, first);
        QFETCH(QString, selector);
        QFETCH(QString, report);
        QVERIFY(StartRound(u"Apple"_s, u"Zebra"_s));
        if (!first.isEmpty()) QVERIFY2(Do(first), qPrintable(first));
        QVERIFY2(ClickLink(*m_browser, selector), qPrintable(selector));
        if (report.isEmpty()) {
            QVERIFY(WaitUntil([&] { return !m_browser->Busy(); }, 15000));
            QTest::qWait(300);
            QCOMPARE(Reports(), QStringList());
            return;
        }
        QCOMPARE(Report(1), Reported(report));
        QVERIFY(WaitUntil([&] { return !m_browser->Busy(); }, 15000));
        QTest::qWait(300);
        QCOMPARE(Reports(), QStringList{Reported(report)});
        // Leaving the encyclopedia is told at once, before any title.
        if (report != u"nowiki") QCOMPARE(m_client->game->windowTitle(), u"Linkhop - "_s + report);
        // Forbidden pages and other sites never enter the route.
        const bool word = kWords.contains(report);
        QCOMPARE(S().RoutePath, u"Apple\r"_s + (word ? QString() : report + u'\r'));
    }

    // The encyclopedia's own search during a round is a search, wherever it leads; so is a jump
    // to another language's site leaving the encyclopedia, whatever that page is called.
    void searchesAndOtherSites_data()
    {
        QTest::addColumn<QString>("typed");   // into the search box; empty: a link to the other site
        QTest::addColumn<bool>("suggestion"); // pick the box's first suggestion instead of pressing Enter
        QTest::newRow("search box, an article") << u"Banana"_s << false;
        QTest::newRow("search box, the destination in other letters") << u"zebra"_s << false;
        QTest::newRow("search box, no article") << u"no such thing"_s << false;
        QTest::newRow("search box's suggestion") << u"Ban"_s << true;
        QTest::newRow("another language's site") << QString() << false;
    }
    void searchesAndOtherSites()
    {
        QFETCH(QString, typed);
        QFETCH(bool, suggestion);
        QVERIFY(StartRound(u"Apple"_s, u"Banana"_s));
        if (typed.isEmpty()) {
            const QString add =
                u"var a = document.createElement('a'); a.id = 'other'; a.textContent = 'Banane';"
                u" a.href = '%1'; document.getElementById('mw-content-text').prepend(a);"_s.arg(
                    m_other.Url(u"/wiki/Banana"));
            m_browser->Page()->runJavaScript(add);
            QVERIFY(Click(u"#other"_s, u"Banana - Wikipedia"_s));
            QCOMPARE(Reports(), QStringList{Reported(u"nowiki"_s)});
            return;
        }
        QVERIFY(Search(typed, !suggestion));
        if (suggestion) QVERIFY(ClickLink(*m_browser, u".cdx-menu-item a[href*='Banana']"_s));
        QCOMPARE(Report(1), Reported(u"search"_s));
        QVERIFY(WaitUntil([&] { return !m_browser->Busy(); }, 15000));
        QTest::qWait(300);
        QCOMPARE(Reports(), QStringList{Reported(u"search"_s)});
        QCOMPARE(S().RoutePath, u"Apple\r"_s);
    }

    // Back and Forward, as the player uses them, report the page arrived at again.
    void backAndForward()
    {
        QVERIFY(StartRound(u"Apple"_s, u"Zebra"_s));
        QVERIFY(Click(u"Banana"));
        QVERIFY(Click(u"Fruit"));
        m_browser->Page()->triggerAction(QWebEnginePage::Back);
        QVERIFY(m_log->WaitForTitle(u"Banana"_s + kSuffix));
        m_browser->Page()->triggerAction(QWebEnginePage::Forward);
        QVERIFY(m_log->WaitForTitle(u"Fruit"_s + kSuffix));
        QCOMPARE(Report(4), Reported(u"Fruit"_s));
        QCOMPARE(Reports(), (QStringList{Reported(u"Banana"_s), Reported(u"Fruit"_s), Reported(u"Banana"_s),
                                         Reported(u"Fruit"_s)}));
        QCOMPARE(S().RoutePath, u"Apple\rBanana\rFruit\rBanana\rFruit\r"_s);
    }

    // A page is what its server sent: a title that a script sets later is no page, also while the
    // player is already on the way to the next one.
    void scriptTitlesAreNoPages()
    {
        QVERIFY(Open(m_other.Url(u"/late-title"), u"Loading"_s));
        QVERIFY(ClickLink(*m_browser, u"#stall"_s));
        QVERIFY(m_browser->Busy());
        QVERIFY(WaitUntil([&] { return m_browser->Page()->title() == u"Late"_s + kSuffix; }, 5000));
        QTest::qWait(100);
        QCOMPARE(m_log->titles.last(), u"Loading"_s);
    }

    // What the encyclopedia's scripts do to an article is no page: the image viewer opening on any
    // picture (two are named like forbidden pages), stepping through them and closing, footnotes,
    // the table of contents, a navbox folding, a category tree unfolding, Back and Forward between
    // them. Nothing is reported; the caption and the route stay the article's.
    void scriptsMakeNoPages_data()
    {
        QTest::addColumn<QStringList>("steps");
        const auto row = [](const char* tag, const char* steps) {
            QTest::newRow(tag) << QString::fromUtf8(steps).split(u',');
        };
        row("image viewer on a thumbnail", "view:Search-engine.png,close");
        row("image viewer through the pictures", "view:List of pears.png,previous,previous,next,close");
        row("image viewer, Back and Forward", "view:Pear.jpg,back,forward,next,back");
        row("footnote and its way back", "footnote,backlink,back,back,forward");
        row("table of contents", "toc:Gallery,toc:History,back");
        row("navbox", "fold,fold");
        row("category tree", "unfold");
    }
    void scriptsMakeNoPages()
    {
        QFETCH(QStringList, steps);
        QVERIFY(StartRound(u"Orchard"_s, u"Zebra"_s));
        QVERIFY(Click(u"Pear"));
        QCOMPARE(Report(1), Reported(u"Pear"_s));
        const qsizetype titles = m_log->titles.size();
        for (const QString& step : steps)
            QVERIFY2(Do(step), qPrintable(step));
        QTest::qWait(300);
        QCOMPARE(Reports(), QStringList{Reported(u"Pear"_s)});
        QCOMPARE(m_log->titles.size(), titles);
        QCOMPARE(m_client->game->windowTitle(), u"Linkhop - Pear"_s);
        QCOMPARE(S().RoutePath, u"Orchard\rPear\r"_s);
    }

    // A round over such pages, as a player plays it: what the player clicked is reported, and
    // Back and Forward report the article they arrive at again; nothing else is.
    void aRoundOverScriptedPages()
    {
        QVERIFY(StartRound(u"Pear (disambiguation)"_s, u"Apple"_s));
        // The redirect to a section shows its target, then moves the address there by script.
        QVERIFY(Click(LinkTo(u"Pear tree"), u"Pear"_s + kSuffix));
        QVERIFY(Evaluate(*m_browser,
                         u"location.pathname === '/wiki/Pear' && location.hash === '#Cultivation'"_s));
        for (const QString& step :
             QStringList{u"view:Search-engine.png"_s, u"next"_s, u"close"_s, u"toc:History"_s, u"footnote"_s})
            QVERIFY2(Do(step), qPrintable(step));
        // A link in the reference the footnote opened.
        QVERIFY(Click(u".references a[href=\"/wiki/Quince\"]"_s, u"Quince"_s + kSuffix));
        // Back over the footnote and the section to where the redirect put the address; then again.
        for (const QString& step :
             {u"back"_s, u"back"_s, u"back"_s, u"forward"_s, u"forward"_s, u"forward"_s})
            QVERIFY2(Do(step), qPrintable(step));
        QCOMPARE(m_log->titles.last(), u"Quince"_s + kSuffix);
        // Quince's picture, then a clickable picture back on the pear's page.
        QVERIFY(Do(u"view:Quince.jpg"_s) && Do(u"close"_s));
        QVERIFY(Click(u".navbox a[href=\"/wiki/Pear\"]"_s, u"Pear"_s + kSuffix));
        QVERIFY(Click(u"img[usemap]"_s, u"Quince"_s + kSuffix));
        QCOMPARE(Report(6), Reported(u"Quince"_s));
        QTest::qWait(300);
        const QStringList route = {u"Pear"_s, u"Quince"_s, u"Pear"_s, u"Quince"_s, u"Pear"_s, u"Quince"_s};
        QStringList reports;
        for (const QString& page : route)
            reports << Reported(page);
        QCOMPARE(Reports(), reports);
        QVERIFY(m_client->Deliver(u"WINNER NAME=ann;"_s));
        QCOMPARE(
            m_client->Sent(u"SENDMYPATH"_s),
            QStringList{u"SENDMYPATH NAME=ann;PATH=Pear (disambiguation)\r"_s + route.join(u'\r') + u';'});
    }

    // Back and Forward bring an entry back as it was first reached: through the encyclopedia's
    // search, it is a search again; opened by the program (the round's first page), an article.
    void backKeepsHowAnEntryWasReached()
    {
        QVERIFY(StartRound(u"Orchard"_s, u"Zebra"_s));
        // The search box's suggestion leads through the search to the article.
        QVERIFY(Search(u"Quin"_s, false));
        QVERIFY(ClickLink(*m_browser, u".cdx-menu-item a[href*='Quince']"_s));
        QCOMPARE(Report(1), Reported(u"search"_s));
        QVERIFY(m_log->WaitForTitle(u"Search"_s + kSuffix));
        QCOMPARE(m_browser->Page()->url(), QUrl(m_wiki.ArticleUrl(u"Quince")));
        QVERIFY(Click(u"Pear"));
        for (const QString& step : {u"back"_s, u"forward"_s, u"back"_s, u"back"_s})
            QVERIFY2(Do(step), qPrintable(step));
        QVERIFY(m_log->WaitForTitle(u"Orchard"_s + kSuffix));
        QTest::qWait(300);
        QCOMPARE(Reports(), (QStringList{Reported(u"search"_s), Reported(u"Pear"_s), Reported(u"search"_s),
                                         Reported(u"Pear"_s), Reported(u"search"_s)}));
        QCOMPARE(m_client->game->windowTitle(), u"Linkhop - Orchard"_s);
        QCOMPARE(S().RoutePath, u"Orchard\rPear\rPear\r"_s);
    }

    // One BeforeNavigate2 per navigation (none for an address rewritten by script); a page loaded
    // again raises its title.
    void navigationsAndGoBack()
    {
        const QString banana = m_wiki.ArticleUrl(u"Banana"), apple = m_wiki.ArticleUrl(u"Apple");
        QVERIFY(Open(S().Site().Search(u"banana"), u"Banana"_s + kSuffix));
        const qsizetype titles = m_log->titles.size();
        QVERIFY(Open(banana, u"Banana"_s + kSuffix));
        QCOMPARE(m_log->titles.mid(titles), QStringList{u"Banana"_s + kSuffix});
        QVERIFY(Click(u"Apple"));
        QVERIFY(Click(LinkTo(u"Big Apple"), u"New York City"_s + kSuffix));
        QVERIFY(
            WaitUntil([&] { return m_browser->Page()->url() == QUrl(m_wiki.ArticleUrl(u"New York City")); }));
        m_browser->GoBack();
        QVERIFY(m_browser->Busy());
        QVERIFY(m_log->WaitForTitle(u"Apple"_s + kSuffix));
        m_browser->GoBack();
        QVERIFY(m_log->WaitForTitle(u"Banana"_s + kSuffix));
        m_browser->Navigate(u"about:blank"_s);
        QVERIFY(WaitUntil([&] { return !m_browser->Busy() && m_log->requests.last() == u"about:blank"; }));
        QCOMPARE(m_log->requests,
                 (QStringList{S().Site().Search(u"banana"), banana, banana, apple,
                              m_wiki.ArticleUrl(u"Big Apple"), apple, banana, u"about:blank"_s}));
        WebEngineBrowser fresh({m_wiki.Host()});
        fresh.GoBack();
        QVERIFY(!fresh.Busy());
    }

    void busyEnds()
    {
        // A jump within the page starts no load.
        QElapsedTimer clock;
        clock.start();
        m_browser->Navigate(S().Site().MainPage() + u"#Section"_s);
        QVERIFY(WaitUntil([&] { return !m_browser->Busy(); }));
        QVERIFY(clock.elapsed() < WebEngineBrowser::kStartLimitMs);
        // A load superseded by another: busy until the second has loaded.
        m_browser->Navigate(m_other.Url(u"/stall"));
        QTest::qWait(100);
        QVERIFY(m_browser->Busy());
        QVERIFY(Open(m_wiki.ArticleUrl(u"Fruit"), u"Fruit"_s + kSuffix));
        QTest::qWait(100);
        QVERIFY(!m_browser->Busy());
        // Loads that end without a page, or never start.
        for (const QString& url :
             QStringList{m_other.Url(u"/204"), u"http://"_s + TestAddress().toString() + u":9/", u"foo:bar"_s,
                         u"http://"_s}) {
            m_browser->Navigate(url);
            QVERIFY2(WaitUntil([&] { return !m_browser->Busy(); }, 10000), qPrintable(url));
        }
        // A server that never answers holds the browser busy only up to the stall limit.
        m_browser->SetStallLimit(300);
        m_browser->Navigate(m_other.Url(u"/stall"));
        QTest::qWait(100);
        QVERIFY(m_browser->Busy());
        QVERIFY(WaitUntil([&] { return !m_browser->Busy(); }, 5000));
    }

    // Back while loading: the engine may fold it into the load under way and end that first.
    void goBackWhileLoading()
    {
        for (const int delayMs : {0, 3, 10}) {
            QVERIFY(Open(m_wiki.ArticleUrl(u"Apple"), u"Apple"_s + kSuffix));
            bool wentBack = false;
            QMetaObject::Connection back = connect(m_browser->Page(), &QWebEnginePage::urlChanged, this, [&] {
                disconnect(back);
                QTimer::singleShot(delayMs, this, [&] {
                    m_browser->GoBack();
                    wentBack = true;
                });
            });
            m_browser->Navigate(m_wiki.Url(u"/w/index.php?title=Apple&action=history"));
            QVERIFY(WaitUntil([&] { return wentBack; }) &&
                    WaitUntil([&] { return !m_browser->Busy(); }, 10000));
            QCOMPARE(m_browser->Page()->url(), QUrl(m_wiki.ArticleUrl(u"Apple")));
            QCOMPARE(m_log->titles.last(), u"Apple"_s + kSuffix);
            QString state;
            m_browser->Page()->runJavaScript(u"document.readyState"_s,
                                             [&](const QVariant& v) { state = v.toString(); });
            QVERIFY(WaitUntil([&] { return !state.isEmpty(); }));
            QCOMPARE(state, u"complete"_s);
        }
    }

    // The word chooser asks the encyclopedia: each word becomes the title it leads to.
    void verification_data()
    {
        QTest::addColumn<QString>("initial");
        QTest::addColumn<QString>("destination");
        QTest::addColumn<QString>("verifiedInitial");
        QTest::addColumn<QString>("verifiedDestination");
        QTest::addColumn<QString>("message"); // empty: verified
        const auto row = [](const char* tag, const char* i, const char* d, const char* vi, const char* vd,
                            const char* message) {
            QTest::newRow(tag) << QString::fromUtf8(i) << QString::fromUtf8(d) << QString::fromUtf8(vi)
                               << QString::fromUtf8(vd) << QString::fromUtf8(message);
        };
        row("redirect", "big apple", "banana", "New York City", "Banana", "");
        row("letter case and escapes", "at&t", "c++", "AT&T", "C++", "");
        row("beyond Windows-1252", "Łódź", "café", "Łódź", "Café", "");
        row("missing initial", "cafe", "Banana", "cafe", "Banana", "This article doesn't exist.");
        row("missing destination", "Apple", "no such article", "Apple", "no such article",
            "This article doesn't exist.");
        row("same article twice", "big apple", "New York City", "New York City", "New York City",
            "There was a problem verifying the destination article.");
    }
    void verification()
    {
        QFETCH(QString, initial);
        QFETCH(QString, destination);
        QFETCH(QString, verifiedInitial);
        QFETCH(QString, verifiedDestination);
        QFETCH(QString, message);
        frmWinner& chooser = S().Winner();
        chooser.show();
        chooser.txtInitial->setText(initial);
        chooser.txtDestination->setText(destination);
        chooser.cmdVerify->click(); // returns once the encyclopedia has answered
        QCOMPARE(chooser.txtInitial->text(), verifiedInitial);
        QCOMPARE(chooser.txtDestination->text(), verifiedDestination);
        QCOMPARE(m_client->client.prompts.MessageTexts(),
                 message.isEmpty() ? QStringList() : QStringList{message});
        QCOMPARE(chooser.cmdStartGame->isEnabled(), message.isEmpty());
        QVERIFY(Reports().isEmpty());
    }

    void wholeRounds()
    {
        RunningSession& c = *m_client;
        // The first page is no click; every page after it is reported once, as its title reads.
        QVERIFY(StartRound(u"AT&T"_s, u"Łódź"_s));
        QVERIFY(Click(u"C++"));
        QCOMPARE(Report(1), Reported(u"C++"_s));
        QCOMPARE(c.game->windowTitle(), u"Linkhop - C++"_s);
        QVERIFY(Click(u"Café"));
        QVERIFY(Click(u"Łódź"));
        QCOMPARE(Report(3), Reported(u"Łódź"_s));
        // We win: the route goes to the server, the chooser opens, later pages are not reported.
        QVERIFY(c.Deliver(u"WINNER NAME=ann;"_s));
        QCOMPARE(c.Sent(u"SENDMYPATH"_s), QStringList{u"SENDMYPATH NAME=ann;PATH=AT&T\rC++\rCafé\rŁódź;"_s});
        QVERIFY(S().OpenWinner() && S().OpenWinner()->isVisible());
        // Outside a round the rules do not apply and nothing is reported; the article is still kept.
        QVERIFY(Click(u"Apple"));
        QVERIFY(Click(u"Talk:Apple"));
        QCOMPARE(S().CurrentArticle, u"Talk:Apple"_s);
        QCOMPARE(Reports().size(), 3);
        QCOMPARE(c.game->windowTitle(), u"Linkhop - Łódź"_s);

        // The next round: disqualified on a talk page, back on the main page, still watched.
        QVERIFY(StartRound(u"Apple"_s, u"Banana"_s));
        QVERIFY(Click(u"Talk:Apple"));
        QCOMPARE(Report(4), Reported(u"talk"_s));
        QVERIFY(c.Deliver(u"DISQUALIFY"_s));
        QCOMPARE(c.Sent(u"CHAT"_s), QStringList{u"CHAT NAME=GAME;TEXT=ann has been disqualified for visiting "
                                                u"an illegal page: \"talk\""_s});
        QVERIFY(m_log->WaitForTitle(u"Wikipedia, the free encyclopedia"_s));
        QVERIFY(S().InRound && S().CurrentArticle.isEmpty() && c.game->windowTitle() == u"Linkhop"_s);
        QVERIFY(Click(u"Banana"));
        QCOMPARE(Report(5), Reported(u"Banana"_s));
    }
};

QTEST_MAIN(tst_rounds)
#include "tst_rounds.moc"
