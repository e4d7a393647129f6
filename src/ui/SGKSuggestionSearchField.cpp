#include "ui/SGKSuggestionSearchField.h"

#include "search/SGKSuggestionList.h"
#include "ui/SGKSuggestionPopup.h"
#include "ui/SGKSuggestionTokenBar.h"

#include <QCoreApplication>
#include <QKeyEvent>

SGKSuggestionSearchField::SGKSuggestionSearchField(QWidget* parent)
    : QLineEdit(parent)
    , m_tokenBar(new SGKSuggestionTokenBar(this))
{
    setObjectName(QStringLiteral("searchField"));
    setPlaceholderText(QCoreApplication::translate("Suggestions", "Search"));
    setClearButtonEnabled(true);
    m_tokenBar->hide();
    connect(m_tokenBar, &SGKSuggestionTokenBar::tokensChanged, this, &SGKSuggestionSearchField::layoutTokens);
    connect(this, &QLineEdit::textChanged, this, &SGKSuggestionSearchField::textChangedByAnyone);
}

// The popup is a window of its own under another parent, so it goes with the field explicitly.
SGKSuggestionSearchField::~SGKSuggestionSearchField()
{
    delete m_popup;
}

void SGKSuggestionSearchField::setSuggestionList(SGKSuggestionList* list)
{
    delete m_popup;
    m_popup = nullptr;
    m_list = list;
    if (m_list) {
        m_popup = new SGKSuggestionPopup(m_list, window());
    }
    m_tokenBar->setSuggestionList(m_list);
}

void SGKSuggestionSearchField::showSuggestions()
{
    Q_EMIT textDidChange(text());
    if (m_popup) {
        m_popup->present(this);
    }
}

void SGKSuggestionSearchField::dismissSuggestions()
{
    if (m_popup) {
        m_popup->dismiss();
    }
}

void SGKSuggestionSearchField::textChangedByAnyone(const QString& text)
{
    if (hasFocus()) {
        showSuggestions();
    } else {
        Q_EMIT textDidChange(text);
    }
    Q_EMIT searchActionTriggered(text);
}

void SGKSuggestionSearchField::focusInEvent(QFocusEvent* event)
{
    QLineEdit::focusInEvent(event);
    showSuggestions();
}

void SGKSuggestionSearchField::focusOutEvent(QFocusEvent* event)
{
    QLineEdit::focusOutEvent(event);
    // A menu of the field (its context menu) takes the focus only for a moment; the suggestions stay for that.
    if (event->reason() != Qt::PopupFocusReason) {
        dismissSuggestions();
    }
}

void SGKSuggestionSearchField::keyPressEvent(QKeyEvent* event)
{
    if (!m_list || event->modifiers() & ~(Qt::KeypadModifier)) {
        QLineEdit::keyPressEvent(event);
        return;
    }
    const bool popupShown = m_popup && m_popup->isVisible();
    switch (event->key()) {
    case Qt::Key_Up:
    case Qt::Key_Down:
        if (!popupShown) {
            showSuggestions();
        }
        m_list->handleCommand(event->key() == Qt::Key_Up ? SGKSuggestionList::Command::MoveUp
                                                         : SGKSuggestionList::Command::MoveDown);
        event->accept();
        return;
    case Qt::Key_Return:
    case Qt::Key_Enter:
        if (popupShown && m_list->selectedRow() >= 0) {
            m_list->handleCommand(SGKSuggestionList::Command::InsertNewline);
            event->accept();
            return;
        }
        QLineEdit::keyPressEvent(event);
        Q_EMIT searchActionTriggered(text());
        return;
    case Qt::Key_Escape:
        if (popupShown) {
            dismissSuggestions();
            event->accept();
            return;
        }
        break;
    default:
        break;
    }
    QLineEdit::keyPressEvent(event);
}

void SGKSuggestionSearchField::resizeEvent(QResizeEvent* event)
{
    QLineEdit::resizeEvent(event);
    layoutTokens();
}

void SGKSuggestionSearchField::layoutTokens()
{
    if (m_tokenBar->isHidden()) {
        setTextMargins(0, 0, 0, 0);
        return;
    }
    const QSize size = m_tokenBar->sizeHint().boundedTo(QSize(width() / 2, height() - 4));
    m_tokenBar->setGeometry(3, (height() - size.height()) / 2, size.width(), size.height());
    setTextMargins(size.width() + 4, 0, 0, 0);
}
