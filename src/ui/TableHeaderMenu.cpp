#include "ui/TableHeaderMenu.h"

#include "foundation/Defaults.h"

#include <QHeaderView>

TableHeaderMenu::TableHeaderMenu(const QString& identifier, const QStringList& unhideableTitles, QHeaderView* header,
                                 Defaults& defaults, QWidget* parent)
    : QMenu(parent)
    , m_identifier(identifier)
    , m_unhideableTitles(unhideableTitles)
    , m_header(header)
    , m_defaults(defaults)
{
    setObjectName(QStringLiteral("TableHeaderMenu"));
    setTitle(tr("Column Selection"));
    if (!m_header) {
        return;
    }
    restoreState();
    refreshActions();
    connect(this, &QMenu::aboutToShow, this, &TableHeaderMenu::refreshActions);
    m_header->setContextMenuPolicy(Qt::CustomContextMenu);
    connect(m_header, &QWidget::customContextMenuRequested, this,
            [this](const QPoint& position) { popup(m_header->mapToGlobal(position)); });
    connect(m_header, &QHeaderView::sectionResized, this, &TableHeaderMenu::saveState);
    connect(m_header, &QHeaderView::sectionMoved, this, &TableHeaderMenu::saveState);
}

QString TableHeaderMenu::stateKey(const QString& identifier)
{
    return identifier + QStringLiteral(" State");
}

void TableHeaderMenu::refreshActions()
{
    qDeleteAll(m_columnActions);
    m_columnActions.clear();
    if (!m_header || !m_header->model()) {
        return;
    }
    for (int section = 0; section < m_header->count(); ++section) {
        QAction* action = addAction(sectionTitle(section));
        action->setCheckable(true);
        action->setChecked(!m_header->isSectionHidden(section));
        if (isUnhideable(section)) {
            action->setChecked(true);
            action->setEnabled(false);
        }
        connect(action, &QAction::toggled, this, [this, section](bool visible) {
            if (!m_header || isUnhideable(section)) {
                return;
            }
            m_header->setSectionHidden(section, !visible);
            saveState();
            Q_EMIT columnVisibilityChanged(section, visible);
        });
        m_columnActions.append(action);
    }
}

bool TableHeaderMenu::restoreState()
{
    if (!m_header) {
        return false;
    }
    const QByteArray state = m_defaults.value(stateKey(m_identifier)).toByteArray();
    if (state.isEmpty()) {
        return false;
    }
    m_restoring = true;
    const bool restored = m_header->restoreState(state);
    m_restoring = false;
    // A state saved by an older layout (or edited by hand) must not hide what always shows.
    keepUnhideableVisible();
    return restored;
}

void TableHeaderMenu::saveState()
{
    if (m_restoring || !m_header) {
        return;
    }
    m_defaults.setValue(stateKey(m_identifier), m_header->saveState());
}

QString TableHeaderMenu::sectionTitle(int section) const
{
    const QAbstractItemModel* model = m_header->model();
    const QString shown = model->headerData(section, m_header->orientation(), Qt::DisplayRole).toString();
    // Columns too narrow for a title still need a name here.
    return shown.isEmpty() ? model->headerData(section, m_header->orientation(), Qt::ToolTipRole).toString() : shown;
}

bool TableHeaderMenu::isUnhideable(int section) const
{
    return m_unhideableTitles.contains(sectionTitle(section));
}

void TableHeaderMenu::keepUnhideableVisible()
{
    for (int section = 0; section < m_header->count(); ++section) {
        if (isUnhideable(section)) {
            m_header->setSectionHidden(section, false);
        }
    }
}
