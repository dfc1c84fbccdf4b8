#include "clientfakes.h"

#include "scriptedserver.h"

#include <QTimer>

using namespace Qt::Literals::StringLiterals;

namespace linkhop::test {

void ScriptedPrompts::MessageBox(const QString& text, Icon icon)
{
    messageBoxes.append({text, icon});
    if (onMessageBox) onMessageBox(text);
}

QString ScriptedPrompts::InputBox(const QString& prompt)
{
    inputPrompts.append(prompt);
    if (onInputBox) onInputBox(prompt);
    return inputAnswers.isEmpty() ? QString() : inputAnswers.takeFirst();
}

QStringList ScriptedPrompts::MessageTexts() const
{
    QStringList texts;
    for (const Shown& s : messageBoxes) texts.append(s.text);
    return texts;
}

bool RecordingLauncher::Start(const QString& program)
{
    started.append(program);
    if (onStart) onStart(program);
    return succeed;
}

ScriptedBrowser::ScriptedBrowser(QWidget* parent) : Browser(parent) {}

void ScriptedBrowser::Navigate(const QString& url)
{
    m_history.append(url);
    Load(url);
}

void ScriptedBrowser::GoBack()
{
    ++backs;
    if (m_history.size() < 2) return;
    m_history.removeLast();
    Load(m_history.last());
}

void ScriptedBrowser::Load(const QString& url)
{
    navigations.append(url);
    m_busy = true;
    const quint64 generation = ++m_generation;
    QTimer::singleShot(0, this, [this, url, generation] {
        if (generation != m_generation) return;
        Q_EMIT BeforeNavigate2(url);
        QTimer::singleShot(loadDelayMs, this, [this, url, generation] {
            if (generation != m_generation) return;
            const QString title = titleFor ? titleFor(url) : QString();
            m_busy = false;
            if (!title.isEmpty()) Q_EMIT TitleChange(title);
        });
    });
}

TestClient::TestClient(BrowserFactory browsers)
{
    Services services;
    services.prompts = &prompts;
    services.launcher = &launcher;
    services.programEnd = &programEnd;
    services.createBrowser = browsers ? std::move(browsers) : [this](QWidget* parent) -> Browser* {
        if (!giveBrowsers) return nullptr;
        auto* browser = new ScriptedBrowser(parent);
        this->browsers.append(browser);
        return browser;
    };
    session = std::make_unique<Session>(folder.path(), services,
                                        SiteConfig{u"wiki.test"_s, u"wiki.test"_s});
}

} // namespace linkhop::test
