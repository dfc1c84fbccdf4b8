#pragma once

#include <QString>
#include <QWidget>

class QLineEdit;
class QListWidget;

namespace linkhop {

// A combo box of the simple style: an edit field above a list that is always open. Selecting a
// list entry puts it into the edit field, as do Up and Down in the field. Enter in the field or the
// list is consumed and reported, as is a double-click on a list entry.
class SimpleCombo final : public QWidget
{
    Q_OBJECT
    Q_DISABLE_COPY_MOVE(SimpleCombo)

public:
    explicit SimpleCombo(QWidget* parent = nullptr);
    ~SimpleCombo() override;

    QString text() const;
    void setText(const QString& text);

    int count() const;
    QString itemText(int index) const;
    void addItem(const QString& text);
    // Empties the list; the edit field keeps its text.
    void clear();
    // -1 when no entry is selected.
    int currentIndex() const;
    void setCurrentIndex(int index);

    QLineEdit* edit() const { return m_edit; }
    QListWidget* list() const { return m_list; }

Q_SIGNALS:
    void enterPressed();
    void itemDoubleClicked();

protected:
    bool eventFilter(QObject* watched, QEvent* event) override;
    void resizeEvent(QResizeEvent* event) override;

private:
    void TakeSelection();
    QLineEdit* m_edit;
    QListWidget* m_list;
};

} // namespace linkhop
