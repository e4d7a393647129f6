// Gives the apps on screen in the apps table their website's icon, asking once per site and never for rows out of
// view; apps keep their kind's icon until one is found, and get it back when website icons are turned off.
#pragma once

#include <QDateTime>
#include <QHash>
#include <QIcon>
#include <QList>
#include <QObject>
#include <QPointer>
#include <QString>
#include <QTimer>
#include <chrono>
#include <utility>

class Cask;
class Defaults;
class Error;
class PackageTableModel;
class QTableView;
class WebsiteIcons;

class WebsiteIconLoader : public QObject {
    Q_OBJECT

public:
    // How long the rows must stay put before they are looked at: scrolling through thousands of rows asks for
    // none of those that only flew past.
    static constexpr std::chrono::milliseconds settleDelay{50};

    enum class SiteState { unknown, pending, found, failed };
    Q_ENUM(SiteState)

    // icons may be nullptr: the application's shared service is then used, made when first needed.
    WebsiteIconLoader(QTableView* view, PackageTableModel* model, Defaults& defaults, WebsiteIcons* icons = nullptr,
                      QObject* parent = nullptr);
    ~WebsiteIconLoader() override;

    // The application's one website icon service, over the user's cache folder; made on the first call, which must
    // come from the GUI thread.
    static WebsiteIcons& sharedWebsiteIcons();

    // The "ShowWebsiteIcons" preference.
    bool isEnabled() const;

    // The rows of view on screen now, first and last, or {-1, -1} when none is (the view hidden or empty).
    static std::pair<int, int> visibleRows(const QTableView& view);
    // The apps of those rows, top to bottom.
    QList<Cask*> visibleApps() const;

    // The icon size of the table in device-independent pixels.
    int iconExtent() const;

    SiteState stateOf(const QString& site) const;
    // The picture found for site; a null icon unless stateOf(site) is found.
    QIcon iconOf(const QString& site) const;

    // Looks at the rows on screen after settleDelay, however often it is called meanwhile.
    void scheduleUpdate();
    // Looks at them now: shows what is known, asks for the sites not yet asked.
    void update();

Q_SIGNALS:
    // The service answered for site and its apps on screen were given the outcome.
    void siteSettled(const QString& site, SiteState state);

protected:
    bool eventFilter(QObject* watched, QEvent* event) override;

private:
    struct Site {
        SiteState state = SiteState::unknown;
        // A request is under way (a found site keeps its picture meanwhile).
        bool asking = false;
        QDateTime answered;
        QIcon icon;
        // The apps seen on screen with this site: those that show, or will show, its picture.
        QList<QPointer<Cask>> apps;
    };

    WebsiteIcons& icons();
    void connectService();
    bool isStale(const Site& site) const;
    void show(Cask* app, const Site& site);
    void iconReady(const QString& site, const QByteArray& bytes);
    void iconDecoded(const QString& site, const QIcon& icon);
    void failed(const QString& site, const Error& error);
    void enabledChanged();
    void clearIcons();

    QPointer<QTableView> m_view;
    QPointer<PackageTableModel> m_model;
    Defaults& m_defaults;
    QPointer<WebsiteIcons> m_icons;
    QTimer m_settle;
    QHash<QString, Site> m_sites;
};
