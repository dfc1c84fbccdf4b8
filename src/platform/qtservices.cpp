#include "qtservices.h"

#include "controls.h"
#include "router/probe.h"

#include <QApplication>
#include <QFileInfo>
#include <QInputDialog>
#include <QMessageBox>
#include <QProcess>
#include <QWidget>

namespace linkhop {

void QtPrompts::MessageBox(const QString& text, Icon icon)
{
    QMessageBox box(icon == Icon::Critical ? QMessageBox::Critical : QMessageBox::Information,
                    kApplicationTitle.toString(), text, QMessageBox::Ok, QApplication::activeWindow());
    box.setWindowIcon(LinkhopIcon());
    box.exec();
}

QString QtPrompts::InputBox(const QString& prompt)
{
    QInputDialog box(QApplication::activeWindow());
    box.setWindowTitle(kApplicationTitle.toString());
    box.setWindowIcon(LinkhopIcon());
    box.setLabelText(prompt);
    box.setTextEchoMode(QLineEdit::Normal);
    return box.exec() == QDialog::Accepted ? box.textValue() : QString();
}

bool QtLauncher::Start(const QString& program)
{
    if (!QFileInfo(program).isExecutable()) return false;
    QProcess process;
    process.setProgram(program);
    process.setArguments({});
    process.setWorkingDirectory(QFileInfo(program).absolutePath());
    // The server has no window of its own, so it cannot take the focus; its output is not ours.
    process.setStandardOutputFile(QProcess::nullDevice());
    process.setStandardErrorFile(QProcess::nullDevice());
    return process.startDetached();
}

void QtProgramEnd::End(int exitCode)
{
    for (QWidget* window : QApplication::topLevelWidgets()) window->hide();
    QCoreApplication::exit(exitCode);
}

QtRouterProbe::~QtRouterProbe()
{
    // The program may end while the router is still being asked: the threads end first.
    for (const QPointer<QThread>& thread : std::as_const(m_asking))
        if (thread) thread->wait();
}

void QtRouterProbe::AskExternalAddress(QObject* context, std::function<void(const QHostAddress&)> done)
{
    m_asking.removeAll(nullptr);
    m_asking.append(router::AskExternalAddress(context, router::Bounds{}, std::move(done)));
}

} // namespace linkhop
