#include "simplecombo.h"

#include <QKeyEvent>
#include <QLineEdit>
#include <QListWidget>
#include <algorithm>

using namespace Qt::Literals::StringLiterals;

namespace linkhop {

namespace {
constexpr int kEditHeight = 20;
}

SimpleCombo::SimpleCombo(QWidget* parent)
    : QWidget(parent), m_edit(new QLineEdit(this)), m_list(new QListWidget(this))
{
    m_edit->setObjectName(u"edit"_s);
    m_list->setObjectName(u"list"_s);
    m_list->setSelectionMode(QAbstractItemView::SingleSelection);
    // The edit field takes the focus for the whole combo; the list is reached by mouse or Tab.
    setFocusProxy(m_edit);
    m_edit->installEventFilter(this);
    m_list->installEventFilter(this);
    connect(m_list, &QListWidget::currentRowChanged, this, [this] { TakeSelection(); });
    connect(m_list, &QListWidget::itemClicked, this, [this] { TakeSelection(); });
    connect(m_list, &QListWidget::itemDoubleClicked, this, [this] {
        TakeSelection();
        Q_EMIT itemDoubleClicked();
    });
}

SimpleCombo::~SimpleCombo() = default;

QString SimpleCombo::text() const
{
    return m_edit->text();
}

void SimpleCombo::setText(const QString& text)
{
    m_edit->setText(text);
}

int SimpleCombo::count() const
{
    return m_list->count();
}

QString SimpleCombo::itemText(int index) const
{
    const QListWidgetItem* item = m_list->item(index);
    return item ? item->text() : QString();
}

void SimpleCombo::addItem(const QString& text)
{
    m_list->addItem(text);
}

void SimpleCombo::clear()
{
    m_list->clear();
}

int SimpleCombo::currentIndex() const
{
    const QListWidgetItem* item = m_list->currentItem();
    return item && item->isSelected() ? m_list->row(item) : -1;
}

void SimpleCombo::setCurrentIndex(int index)
{
    m_list->setCurrentRow(index);
    TakeSelection();
}

void SimpleCombo::TakeSelection()
{
    if (const int index = currentIndex(); index >= 0) m_edit->setText(itemText(index));
}

bool SimpleCombo::eventFilter(QObject* watched, QEvent* event)
{
    if ((watched != m_edit && watched != m_list) || event->type() != QEvent::KeyPress)
        return QWidget::eventFilter(watched, event);
    const int key = static_cast<QKeyEvent*>(event)->key();
    // Enter belongs to the combo wherever its focus is, the list included.
    if (key == Qt::Key_Return || key == Qt::Key_Enter) {
        Q_EMIT enterPressed();
        return true;
    }
    // Up and Down in the field step through the list, which puts the entry into the field.
    if (watched == m_edit && (key == Qt::Key_Up || key == Qt::Key_Down) && count() > 0) {
        const int index = currentIndex();
        const int step = key == Qt::Key_Down ? 1 : -1;
        setCurrentIndex(index < 0 ? 0 : std::clamp(index + step, 0, count() - 1));
        m_edit->selectAll();
        return true;
    }
    return QWidget::eventFilter(watched, event);
}

void SimpleCombo::resizeEvent(QResizeEvent* event)
{
    QWidget::resizeEvent(event);
    m_edit->setGeometry(0, 0, width(), kEditHeight);
    m_list->setGeometry(0, kEditHeight + 1, width(), height() - kEditHeight - 1);
}

} // namespace linkhop
