// One row of a suggestion list: its label, icon, badge and on/off state, and what choosing it does (add a filter
// token, complete the search text, or run a command). Icons are names, not images, so the list lives without a GUI.
#pragma once

#include "catalogue/Predicate.h"

#include <QList>
#include <QString>
#include <QStringList>
#include <functional>
#include <memory>
#include <optional>

// How a part of a row's label is drawn; the widgets turn this into fonts and colours.
struct SGKTextAttributes {
    bool bold = false;
    // Drawn in the dimmer text colour of the palette.
    bool secondary = false;

    friend bool operator==(const SGKTextAttributes&, const SGKTextAttributes&) = default;
};

// One styled run of a row's label.
struct SGKTextRun {
    QString text;
    SGKTextAttributes attributes;

    friend bool operator==(const SGKTextRun&, const SGKTextRun&) = default;
};

class SGKSuggestionViewItem {
public:
    enum class Strategy {
        Predicate,
        Completion,
        Command,
    };
    enum class State {
        Off = 0,
        On = 1,
        Mixed = -1,
    };

    // Icon names: a name starting with ':' is a Qt resource path; any other is a symbol name that the widgets map
    // to a themed icon.
    static inline const QString checkmarkSymbol = QStringLiteral("checkmark");
    static inline const QString recentSymbol = QStringLiteral("clock.arrow.circlepath");

    static SGKTextAttributes defaultKeyAttributes();
    static SGKTextAttributes defaultValueAttributes();
    // "predicate", "completion" or "command".
    static QString strategyName(Strategy strategy);

    explicit SGKSuggestionViewItem(const QString& key);
    virtual ~SGKSuggestionViewItem();

    SGKSuggestionViewItem(const SGKSuggestionViewItem&) = delete;
    SGKSuggestionViewItem& operator=(const SGKSuggestionViewItem&) = delete;

    // The item's kind: the class name of its most derived type. Conflicts and alternates name kinds.
    static QString staticKind() { return QStringLiteral("SGKSuggestionViewItem"); }
    virtual QString kind() const { return staticKind(); }
    bool isKind(const QString& kind) const { return this->kind() == kind; }

    // Its kind unless set: one item of a kind per list, so the kind names the item across rebuilds.
    QString identifier() const { return m_identifier.isEmpty() ? kind() : m_identifier; }
    void setIdentifier(const QString& identifier) { m_identifier = identifier; }

    Strategy strategy() const { return m_strategy; }
    void setStrategy(Strategy strategy) { m_strategy = strategy; }
    bool hasState() const { return m_hasState; }
    void setHasState(bool hasState) { m_hasState = hasState; }
    bool isSelectable() const { return m_isSelectable; }
    void setSelectable(bool selectable) { m_isSelectable = selectable; }
    // True for rows that only structure the list (separators, headings).
    virtual bool isSeparator() const { return false; }
    virtual bool isGroup() const { return false; }

    const QStringList& conflictingSuggestions() const { return m_conflictingSuggestions; }
    void setConflictingSuggestions(const QStringList& kinds) { m_conflictingSuggestions = kinds; }
    const QStringList& alternateSuggestions() const { return m_alternateSuggestions; }
    void setAlternateSuggestions(const QStringList& kinds) { m_alternateSuggestions = kinds; }

    const QString& key() const { return m_key; }
    const SGKTextAttributes& keyAttributes() const { return m_keyAttributes; }
    void setKeyAttributes(const SGKTextAttributes& attributes) { m_keyAttributes = attributes; }
    const std::optional<QString>& value() const { return m_value; }
    void setValue(const std::optional<QString>& value) { m_value = value; }
    const std::optional<SGKTextAttributes>& valueAttributes() const { return m_valueAttributes; }
    void setValueAttributes(const std::optional<SGKTextAttributes>& attributes) { m_valueAttributes = attributes; }

    // Both are worked out on first use and kept, as rows are created for one list and not edited after showing.
    const QString& label() const;
    // The key run, then the value run (in its own style, or the default value style) when there is a value.
    const QList<SGKTextRun>& attributedLabel() const;

    const std::optional<QString>& icon() const { return m_icon; }
    void setIcon(const std::optional<QString>& icon) { m_icon = icon; }
    const std::optional<QString>& badge() const { return m_badge; }
    void setBadge(const std::optional<QString>& badge) { m_badge = badge; }

    State state() const { return m_state; }
    // On shows the checkmark; any other state shows none.
    void setState(State state);
    const std::optional<QString>& stateImage() const { return m_stateImage; }

    const std::optional<QString>& completion() const { return m_completion; }
    void setCompletion(const std::optional<QString>& completion) { m_completion = completion; }
    bool shouldCompletionReplaceString() const { return m_shouldCompletionReplaceString; }
    void setShouldCompletionReplaceString(bool replace) { m_shouldCompletionReplaceString = replace; }

    const std::optional<Predicate>& predicate() const { return m_predicate; }
    void setPredicate(const std::optional<Predicate>& predicate) { m_predicate = predicate; }

    const std::function<void()>& command() const { return m_command; }
    void setCommand(std::function<void()> command) { m_command = std::move(command); }

private:
    QString m_identifier;
    Strategy m_strategy = Strategy::Predicate;
    bool m_hasState = true;
    bool m_isSelectable = true;
    QStringList m_conflictingSuggestions;
    QStringList m_alternateSuggestions;
    QString m_key;
    SGKTextAttributes m_keyAttributes;
    std::optional<QString> m_value;
    std::optional<SGKTextAttributes> m_valueAttributes;
    mutable std::optional<QString> m_label;
    mutable std::optional<QList<SGKTextRun>> m_attributedLabel;
    std::optional<QString> m_icon;
    std::optional<QString> m_badge;
    State m_state = State::Off;
    std::optional<QString> m_stateImage;
    std::optional<QString> m_completion;
    bool m_shouldCompletionReplaceString = false;
    std::optional<Predicate> m_predicate;
    std::function<void()> m_command;
};

using SGKSuggestionViewItemPtr = std::shared_ptr<SGKSuggestionViewItem>;
using SGKSuggestionViewItems = QList<SGKSuggestionViewItemPtr>;

// Declares a kind in a subclass: SGK_SUGGESTION_KIND(NameSuggestionViewItem).
#define SGK_SUGGESTION_KIND(Class)                                                                                     \
    static QString staticKind()                                                                                        \
    {                                                                                                                  \
        return QStringLiteral(#Class);                                                                                 \
    }                                                                                                                  \
    QString kind() const override                                                                                      \
    {                                                                                                                  \
        return staticKind();                                                                                           \
    }
