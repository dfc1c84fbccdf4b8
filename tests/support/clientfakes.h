#pragma once

#include "game/session.h"
#include "platform/browser.h"
#include "platform/services.h"

#include <QList>
#include <QPointer>
#include <QStringList>
#include <QTemporaryDir>

#include <functional>
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

    void MessageBox(const QString& text, Icon icon) override;
    QString InputBox(const QString& prompt) override;
    QStringList MessageTexts() const;
};

class RecordingLauncher final : public Launcher
{
public:
    QStringList started;
    bool succeed = true;
    std::function<void(const QString& program)> onStart;
    bool Start(const QString& program) override;
};

class RecordingProgramEnd final : public ProgramEnd
{
public:
    QList<int> endings;
    void End(int exitCode) override { endings.append(exitCode); }
};

// A browser without a network: every navigation is recorded, raises BeforeNavigate2 and, after
// `loadDelayMs`, the title that `titleFor` gives for its address (none when that is empty), then
// stops being busy. A newer navigation supersedes one still loading, as in a real browser.
class ScriptedBrowser final : public Browser
{
    Q_OBJECT

public:
    explicit ScriptedBrowser(QWidget* parent = nullptr);

    QStringList navigations;
    int backs = 0;
    int loadDelayMs = 0;
    std::function<QString(const QString& url)> titleFor;

    void Navigate(const QString& url) override;
    bool Busy() const override { return m_busy; }
    void GoBack() override;
    // What the user clicking a link looks like: the same as Navigate, but not by the program.
    void Follow(const QString& url) { Navigate(url); }
    QString CurrentUrl() const { return m_history.isEmpty() ? QString() : m_history.last(); }

private:
    void Load(const QString& url);
    bool m_busy = false;
    quint64 m_generation = 0;
    QStringList m_history;
};

// A client assembled for a test: a temporary program folder, scripted services, a session.
// Its browsers are ScriptedBrowsers unless another factory is given.
struct TestClient
{
    explicit TestClient(BrowserFactory browsers = {});
    QTemporaryDir folder;
    ScriptedPrompts prompts;
    RecordingLauncher launcher;
    RecordingProgramEnd programEnd;
    QList<QPointer<ScriptedBrowser>> browsers;
    // False: the browser factory gives none, as the client's does until it has one to give.
    bool giveBrowsers = true;
    std::unique_ptr<Session> session;
    ScriptedBrowser* LastBrowser() const { return browsers.isEmpty() ? nullptr : browsers.last().data(); }
};

} // namespace linkhop::test
