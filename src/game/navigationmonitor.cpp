#include "navigationmonitor.h"

#include "core/messages.h"
#include "core/pagerules.h"
#include "platform/browser.h"
#include "session.h"

#include <QUrl>

using namespace Qt::Literals::StringLiterals;

namespace linkhop {

namespace {

constexpr QStringView kLeftEncyclopedia = u"nowiki";
constexpr QStringView kCaption = u"Linkhop";

} // namespace

NavigationMonitor::NavigationMonitor(Session& session, NavigationRecord& record, Sender send,
                                     CaptionSetter setCaption, QObject* parent)
    : QObject(parent), m_session(session), m_record(record), m_send(std::move(send)),
      m_setCaption(std::move(setCaption))
{
}

void NavigationMonitor::Watch(Browser& browser)
{
    connect(&browser, &Browser::BeforeNavigate2, this, &NavigationMonitor::OnBeforeNavigate2);
    connect(&browser, &Browser::TitleChange, this, &NavigationMonitor::OnTitleChange);
}

void NavigationMonitor::OnBeforeNavigate2(const QString& url)
{
    if (!m_session.InRound) return;
    // Any other site, other languages' encyclopedias among them, is leaving this one: a race on
    // the same title there must not count.
    if (m_session.Site().IsEncyclopedia(QUrl(url))) return; // the title will tell which page it is
    m_session.CurrentArticle = kLeftEncyclopedia.toString();
    Report();
}

void NavigationMonitor::OnTitleChange(const QString& title)
{
    if (!title.contains(kTitleSuffix)) return;
    const qsizetype cut = title.lastIndexOf(u" -");
    // A title with a "-" but no " -" names no article: treated like one without any "-".
    const bool named = title.contains(u'-') && cut >= 0;
    if (!m_session.InRound) {
        if (named) m_session.CurrentArticle = title.left(cut);
        return;
    }
    if (!named) {
        m_session.CurrentArticle.clear();
        m_setCaption(kCaption.toString());
        return;
    }
    const QString article = title.left(cut);
    const QString word = PageCategory(article);
    if (!word.isEmpty()) {
        m_session.CurrentArticle = word;
        m_setCaption(kCaption % u" - " % m_session.CurrentArticle);
        if (m_session.CurrentArticle != m_record.LastReported) Report();
        m_record.LastReported = m_session.CurrentArticle;
        return;
    }
    m_session.CurrentArticle = article;
    m_setCaption(kCaption % u" - " % m_session.CurrentArticle);
    if (m_session.CurrentArticle != m_session.Words.at(0) &&
        m_session.CurrentArticle != m_record.LastReported) {
        Report();
        m_session.RoutePath += m_session.CurrentArticle % u'\r';
    }
    m_record.LastReported = m_session.CurrentArticle;
}

void NavigationMonitor::Report()
{
    if (m_send) m_send(msg::Navigate(m_session.PlayerName, m_session.CurrentArticle));
}

} // namespace linkhop
