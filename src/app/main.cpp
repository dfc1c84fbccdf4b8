#include "game/session.h"
#include "lobby/frmmain.h"
#include "platform/controls.h"
#include "platform/qtservices.h"
#include "platform/webenginebrowser.h"

#include <QApplication>
#include <QPointer>
#include <unistd.h>

int main(int argc, char* argv[])
{
    // WebEngine refuses to start its sandbox as root; a root user gets it without one.
    if (geteuid() == 0 && qEnvironmentVariableIsEmpty("QTWEBENGINE_DISABLE_SANDBOX"))
        qputenv("QTWEBENGINE_DISABLE_SANDBOX", "1");
    QCoreApplication::setAttribute(Qt::AA_ShareOpenGLContexts);

    QApplication app(argc, argv);
    QApplication::setApplicationName(QStringLiteral("Linkhop"));
    // For any window that does not set its own, such as the browser's dialogs.
    QApplication::setWindowIcon(linkhop::LinkhopIcon());
    // The program ends through the session only: the main window's hand-over closes the last
    // window for a moment before the session windows open.
    QApplication::setQuitOnLastWindowClosed(false);

    linkhop::QtPrompts prompts;
    linkhop::QtLauncher launcher;
    linkhop::QtProgramEnd programEnd;
    linkhop::QtRouterProbe router;
    linkhop::Services services;
    services.prompts = &prompts;
    services.launcher = &launcher;
    services.programEnd = &programEnd;
    services.router = &router;
    const linkhop::SiteConfig site = linkhop::SiteConfig::Compiled();
    services.createBrowser = linkhop::WebEngineBrowserFactory(site);

    linkhop::Session session(QCoreApplication::applicationDirPath(), services, site);
    const QPointer<linkhop::frmMain> window = new linkhop::frmMain(session);
    window->show();
    const int exitCode = QApplication::exec();
    delete window.data();
    return exitCode;
}
