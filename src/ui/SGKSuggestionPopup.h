// The window of suggestions under a search field: a frameless child window of the field's window, as wide as the
// field, listing the rows of a suggestion list. The pointer selects the row it rests on and a click chooses it; the
// keyboard stays with the field.
#pragma once

#include <QPointer>
#include <QWidget>

class QListView;
class SGKSuggestionList;

class SGKSuggestionPopup : public QWidget {
    Q_OBJECT

public:
    // Tucked under the field's lower edge and left by this much, so its border lines up with the field's frame.
    static constexpr int fieldOffset = -2;
    // Beyond this many rows the list scrolls.
    static constexpr int maximumVisibleRows = 16;

    explicit SGKSuggestionPopup(SGKSuggestionList* list, QWidget* parent = nullptr);

    SGKSuggestionList* suggestionList() const { return m_list; }
    QListView* listView() const { return m_view; }

    // Shows the popup under field, or hides it when the list has no rows. The popup then follows the field.
    void present(QWidget* field);
    void dismiss();

    // Where the popup's top-left corner goes for field, in screen coordinates.
    static QPoint anchorFor(const QWidget* field);

protected:
    bool eventFilter(QObject* watched, QEvent* event) override;

private:
    void attach(QWidget* field);
    void updateGeometryForField();
    void listChanged();
    void showSelectedRow(int row);

    SGKSuggestionList* m_list;
    QListView* m_view;
    QPointer<QWidget> m_field;
    QPointer<QWidget> m_fieldWindow;
};
