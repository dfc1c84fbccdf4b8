#pragma once

#include "game/session.h"
#include "platform/browser.h"

#include <QHostAddress>
#include <QStringList>
#include <QTemporaryDir>
#include <QTimer>
#include <memory>

namespace linkhop::test {

// Records every message box and answers input boxes from a queue (empty when the queue is empty).
// `onMessageBox` runs while a box "is open", as events would while a real one waits.
class ScriptedPrompts final : public Prompts
{
public:
    struct Shown
    {
        QString text;
        Icon icon;
    };
    QList<Shown> messageBoxes;
    QStringList inputPrompts;
    QStringList inputAnswers;
    std::function<void(const QString& text)> onMessageBox;
    std::function<void(const QString& prompt)> onInputBox;

    void MessageBox(const QString& text, Icon icon) override
    {
        messageBoxes.append({text, icon});
        if (onMessageBox) onMessageBox(text);
    }
    QString InputBox(const QString& prompt) override
    {
        inputPrompts.append(prompt);
        if (onInputBox) onInputBox(prompt);
        return inputAnswers.isEmpty() ? QString() : inputAnswers.takeFirst();
    }
    QStringList MessageTexts() const;
};

class RecordingLauncher final : public Launcher
{
public:
    QStringList started;
    bool succeed = true;
    std::function<void(const QString& program)> onStart;
    bool Start(const QString& program) override
    {
        started.append(program);
        if (onStart) onStart(program);
        return succeed;
    }
};

class RecordingProgramEnd final : public ProgramEnd
{
public:
    QList<int> endings;
    void End(int exitCode) override { endings.append(exitCode); }
};

// A router that answers every question as soon as events run, with `external` as it is then
// (null: none answered).
class ScriptedRouter final : public RouterProbe
{
public:
    QHostAddress external;
    int asked = 0;
    void AskExternalAddress(QObject* context, std::function<void(const QHostAddress&)> done) override
    {
        ++asked;
        QTimer::singleShot(0, context, [this, done = std::move(done)] { done(external); });
    }
};

// A browser without a network: each navigation is recorded, raises BeforeNavigate2 and after
// `loadDelayMs` the title `titleFor` gives (if any), superseding one still loading.
class ScriptedBrowser final : public Browser
{
    Q_OBJECT

public:
    using Browser::Browser;

    QStringList navigations;
    int backs = 0;
    int loadDelayMs = 0;
    std::function<QString(const QString& url)> titleFor;

    void Navigate(const QString& url) override;
    bool Busy() const override { return m_busy; }
    void GoBack() override;

private:
    void Load(const QString& url);
    bool m_busy = false;
    quint64 m_generation = 0;
    QStringList m_history;
};

// For a ScriptedBrowser on an encyclopedia that has every article: the classic title of what an
// address shows, the text it searches for or the name after "/wiki/".
QString EveryArticleTitle(const QString& url);

// A temporary program folder, scripted services (ScriptedBrowsers unless given a factory), a session.
struct TestClient
{
    explicit TestClient(BrowserFactory browsers = {});
    QTemporaryDir folder;
    ScriptedPrompts prompts;
    RecordingLauncher launcher;
    RecordingProgramEnd programEnd;
    ScriptedRouter router;
    // False: the browser factory gives none, as the client's does until it has one to give.
    bool giveBrowsers = true;
    std::unique_ptr<Session> session;
    ScriptedBrowser* LastBrowser() const { return m_lastBrowser; }

private:
    QPointer<ScriptedBrowser> m_lastBrowser;
};

} // namespace linkhop::test
