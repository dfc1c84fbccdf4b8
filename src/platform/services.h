#pragma once

#include <QString>

#include <functional>

class QHostAddress;
class QObject;
class QWidget;

namespace linkhop {

class Browser;

enum class Icon
{
    Critical,
    Information,
};

// Message boxes and the input box, each with the application's title "Linkhop". Tests answer
// them from a script instead of blocking.
class Prompts
{
public:
    virtual ~Prompts() = default;
    // One OK button and one icon; returns when the user has closed it.
    virtual void MessageBox(const QString& text, Icon icon) = 0;
    // A modal text input box with an empty default; empty text when cancelled.
    virtual QString InputBox(const QString& prompt) = 0;
};

// Starts a program without arguments, minimised and without taking the focus.
class Launcher
{
public:
    virtual ~Launcher() = default;
    virtual bool Start(const QString& program) = 0;
};

// Ends the program at once.
class ProgramEnd
{
public:
    virtual ~ProgramEnd() = default;
    virtual void End(int exitCode) = 0;
};

// Asks the home router, in the background, at which address players on the Internet reach this
// computer.
class RouterProbe
{
public:
    virtual ~RouterProbe() = default;
    // Returns at once; `done` runs later on `context`'s thread with the router's public external
    // address, or a null one when no router told one, and never once `context` is gone.
    virtual void AskExternalAddress(QObject* context, std::function<void(const QHostAddress&)> done) = 0;
};

using BrowserFactory = std::function<Browser*(QWidget* parent)>;

// The services one client is built with: the real ones in production, scripted ones in tests.
struct Services
{
    Prompts* prompts = nullptr;
    Launcher* launcher = nullptr;
    ProgramEnd* programEnd = nullptr;
    BrowserFactory createBrowser;
    RouterProbe* router = nullptr; // none: nobody is asked
};

} // namespace linkhop
