#include "ui/WebsiteIconLoader.h"

#include "catalogue/Cask.h"
#include "foundation/Defaults.h"
#include "foundation/Logging.h"
#include "foundation/PreferenceKeys.h"
#include "foundation/Threading.h"
#include "ui/PackageTableModel.h"
#include "ui/WebsiteIconDecoder.h"
#include "webicons/WebsiteIcons.h"

#include <QCoreApplication>
#include <QEvent>
#include <QHeaderView>
#include <QImage>
#include <QScrollBar>
#include <QStyle>
#include <QTableView>
#include <cmath>

WebsiteIconLoader::WebsiteIconLoader(QTableView* view, PackageTableModel* model, Defaults& defaults,
                                     WebsiteIcons* icons, QObject* parent)
    : QObject(parent)
    , m_view(view)
    , m_model(model)
    , m_defaults(defaults)
    , m_icons(icons)
{
    m_settle.setSingleShot(true);
    m_settle.setInterval(settleDelay);
    connect(&m_settle, &QTimer::timeout, this, &WebsiteIconLoader::update);

    // Whatever can bring other rows on screen.
    connect(view->verticalScrollBar(), &QScrollBar::valueChanged, this, &WebsiteIconLoader::scheduleUpdate);
    connect(view->verticalScrollBar(), &QScrollBar::rangeChanged, this, &WebsiteIconLoader::scheduleUpdate);
    connect(view->horizontalHeader(), &QHeaderView::sectionResized, this, &WebsiteIconLoader::scheduleUpdate);
    connect(model, &QAbstractItemModel::modelReset, this, &WebsiteIconLoader::scheduleUpdate);
    connect(model, &QAbstractItemModel::layoutChanged, this, &WebsiteIconLoader::scheduleUpdate);
    connect(model, &QAbstractItemModel::rowsInserted, this, &WebsiteIconLoader::scheduleUpdate);
    connect(model, &QAbstractItemModel::rowsRemoved, this, &WebsiteIconLoader::scheduleUpdate);
    connect(model, &QAbstractItemModel::rowsMoved, this, &WebsiteIconLoader::scheduleUpdate);
    view->viewport()->installEventFilter(this);
    m_defaults.observe(PreferenceKeys::ShowWebsiteIcons, this, [this] { enabledChanged(); });
    if (m_icons) {
        connectService();
    }
}

WebsiteIconLoader::~WebsiteIconLoader() = default;

WebsiteIcons& WebsiteIconLoader::sharedWebsiteIcons()
{
    // Owned by the application object, so that its network access goes before the application does.
    static QPointer<WebsiteIcons> shared;
    if (!shared) {
        shared = new WebsiteIcons(WebsiteIconDecoder::decoder(), WebsiteIconCache::defaultFolder(),
                                  QCoreApplication::instance());
    }
    return *shared;
}

WebsiteIcons& WebsiteIconLoader::icons()
{
    if (!m_icons) {
        m_icons = &sharedWebsiteIcons();
        connectService();
    }
    return *m_icons;
}

void WebsiteIconLoader::connectService()
{
    connect(m_icons, &WebsiteIcons::iconReady, this, &WebsiteIconLoader::iconReady);
    connect(m_icons, &WebsiteIcons::failed, this, &WebsiteIconLoader::failed);
}

bool WebsiteIconLoader::isEnabled() const
{
    return m_defaults.boolValue(PreferenceKeys::ShowWebsiteIcons);
}

std::pair<int, int> WebsiteIconLoader::visibleRows(const QTableView& view)
{
    const QAbstractItemModel* model = view.model();
    if (!model || !view.isVisible() || view.viewport()->height() <= 0) {
        return {-1, -1};
    }
    const int first = view.rowAt(0);
    if (first < 0) {
        return {-1, -1};
    }
    const int last = view.rowAt(view.viewport()->height() - 1);
    // Below the last row there is empty space: every row from first on is shown.
    return {first, last >= 0 ? last : model->rowCount() - 1};
}

QList<Cask*> WebsiteIconLoader::visibleApps() const
{
    QList<Cask*> apps;
    if (!m_view || !m_model) {
        return apps;
    }
    const auto [first, last] = visibleRows(*m_view);
    for (int row = first; row >= 0 && row <= last; ++row) {
        if (m_view->isRowHidden(row)) {
            continue;
        }
        if (auto* app = qobject_cast<Cask*>(m_model->recordAt(row))) {
            apps.append(app);
        }
    }
    return apps;
}

int WebsiteIconLoader::iconExtent() const
{
    if (!m_view) {
        return 0;
    }
    const QSize size = m_view->iconSize();
    if (size.isValid() && !size.isEmpty()) {
        return std::max(size.width(), size.height());
    }
    return m_view->style()->pixelMetric(QStyle::PM_SmallIconSize, nullptr, m_view);
}

WebsiteIconLoader::SiteState WebsiteIconLoader::stateOf(const QString& site) const
{
    return m_sites.value(site).state;
}

QIcon WebsiteIconLoader::iconOf(const QString& site) const
{
    return m_sites.value(site).icon;
}

void WebsiteIconLoader::scheduleUpdate()
{
    if (isEnabled()) {
        m_settle.start();
    }
}

bool WebsiteIconLoader::isStale(const Site& site) const
{
    if (!m_icons || !site.answered.isValid()) {
        return false;
    }
    const std::chrono::seconds lifetime =
        site.state == SiteState::found ? m_icons->cache().iconLifetime() : m_icons->cache().failureLifetime();
    return site.answered.addSecs(lifetime.count()) <= QDateTime::currentDateTimeUtc();
}

void WebsiteIconLoader::update()
{
    m_settle.stop();
    if (!isEnabled() || !m_view || !m_model) {
        return;
    }
    // Nobody sees the pictures of a hidden icon column.
    const int iconColumn = m_model->columnOf(PackageTableModel::Column::icon);
    if (iconColumn < 0 || m_view->isColumnHidden(iconColumn)) {
        return;
    }
    const QList<Cask*> apps = visibleApps();
    if (apps.isEmpty()) {
        return;
    }
    const int pixels = int(std::ceil(iconExtent() * m_view->devicePixelRatioF()));
    WebsiteIcons& service = icons();
    for (Cask* app : apps) {
        const QUrl website = app->website();
        const QString name = WebsiteIcons::siteOf(website);
        if (name.isEmpty()) {
            continue;
        }
        Site& site = m_sites[name];
        if (!site.apps.contains(app)) {
            site.apps.append(app);
        }
        if (site.state == SiteState::found) {
            show(app, site);
        }
        if (site.asking || (site.state != SiteState::unknown && !isStale(site))) {
            continue;
        }
        // An old picture stays up while the site is asked again.
        if (site.state != SiteState::found) {
            site.state = SiteState::pending;
        }
        site.asking = true;
        service.request(website, pixels);
    }
}

void WebsiteIconLoader::show(Cask* app, const Site& site)
{
    const QVariant& current = app->icon();
    if (current.metaType().id() == QMetaType::QIcon && current.value<QIcon>().cacheKey() == site.icon.cacheKey()) {
        return;
    }
    app->setIcon(QVariant::fromValue(site.icon));
}

void WebsiteIconLoader::iconReady(const QString& site, const QByteArray& bytes)
{
    if (!m_sites.contains(site) || !m_view) {
        return; // asked by another user of a shared service
    }
    const int extent = iconExtent();
    const qreal ratio = m_view->devicePixelRatioF();
    const int pixels = int(std::ceil(extent * ratio));
    // Decoding is done off the GUI thread: a page of cached icons arrives all at once.
    Threading::runAsync<QImage>(
        [bytes, pixels] { return WebsiteIconDecoder::image(bytes, pixels); }, this,
        [this, site, ratio](QImage image) { iconDecoded(site, WebsiteIconDecoder::icon(image, ratio)); });
}

void WebsiteIconLoader::iconDecoded(const QString& name, const QIcon& icon)
{
    Site& site = m_sites[name];
    site.asking = false;
    site.answered = QDateTime::currentDateTimeUtc();
    if (icon.isNull()) {
        qCDebug(lcCorvel) << "The icon of" << name << "does not decode";
        site.state = SiteState::failed;
        site.icon = QIcon();
        Q_EMIT siteSettled(name, site.state);
        return;
    }
    site.state = SiteState::found;
    site.icon = icon;
    site.apps.removeIf([](const QPointer<Cask>& app) { return app.isNull(); });
    if (isEnabled()) {
        // A copy: setting an icon may run code that comes back here.
        const QList<QPointer<Cask>> apps = site.apps;
        for (const QPointer<Cask>& app : apps) {
            if (app) {
                show(app, m_sites[name]);
            }
        }
    }
    Q_EMIT siteSettled(name, SiteState::found);
}

void WebsiteIconLoader::failed(const QString& name, const Error& error)
{
    if (!m_sites.contains(name)) {
        return;
    }
    qCDebug(lcCorvel).noquote() << "No website icon for" << name << ":" << error.description();
    Site& site = m_sites[name];
    site.asking = false;
    site.answered = QDateTime::currentDateTimeUtc();
    // A picture found before stays: a site that is down for a while has not changed its icon.
    if (site.state != SiteState::found) {
        site.state = SiteState::failed;
    }
    Q_EMIT siteSettled(name, site.state);
}

void WebsiteIconLoader::enabledChanged()
{
    if (isEnabled()) {
        scheduleUpdate();
    } else {
        m_settle.stop();
        clearIcons();
    }
}

void WebsiteIconLoader::clearIcons()
{
    for (Site& site : m_sites) {
        for (const QPointer<Cask>& app : std::as_const(site.apps)) {
            if (!app) {
                continue;
            }
            // Only the pictures this loader gave: anything else put there is not its to take away.
            const QVariant& current = app->icon();
            if (current.metaType().id() == QMetaType::QIcon &&
                current.value<QIcon>().cacheKey() == site.icon.cacheKey()) {
                app->setIcon(QVariant());
            }
        }
    }
}

bool WebsiteIconLoader::eventFilter(QObject* watched, QEvent* event)
{
    if (m_view && watched == m_view->viewport() && (event->type() == QEvent::Resize || event->type() == QEvent::Show)) {
        scheduleUpdate();
    }
    return QObject::eventFilter(watched, event);
}
