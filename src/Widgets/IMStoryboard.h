#pragma once

#include <QString>
#include <functional>

class IMUIViewController;

//! A named set of screen factories, as a storyboard is: the kit fills "IMMain" with its screens (each
//! under its class name, its layout a compiled Designer file) and a host may replace any of them.
class IMStoryboard {
public:
    using Factory = std::function<IMUIViewController *()>;

    //! The storyboard named `name`, or null when nothing was registered under that name.
    static IMStoryboard *storyboardWithName(const QString &name);
    //! Registers (or replaces) the screen made for `identifier` in storyboard `name`.
    static void registerViewController(const QString &name, const QString &identifier, const Factory &factory);
    //! Removes the screen registered for `identifier` in storyboard `name`.
    static void unregisterViewController(const QString &name, const QString &identifier);

    //! The storyboard's name.
    QString name() const;
    //! A new screen for `identifier`, not loaded yet (its `viewDidLoad` runs before it first shows, or at
    //! `loadViewIfNeeded`), so the caller can set it up first; null for an unknown identifier.
    IMUIViewController *instantiateViewControllerWithIdentifier(const QString &identifier) const;
    //! Whether `identifier` is registered.
    bool contains(const QString &identifier) const;

private:
    explicit IMStoryboard(const QString &name);
    QString m_name;
};

//! Registers `Class` (default-constructible) under its class name in storyboard "IMMain" when the
//! library loads: `IM_STORYBOARD_SCREEN(IMRoomViewController)` in the class's .cpp file.
#define IM_STORYBOARD_SCREEN(Class)                                                                                    \
    static const bool Class##_storyboardRegistered = [] {                                                              \
        IMStoryboard::registerViewController(QStringLiteral("IMMain"), QStringLiteral(#Class),                         \
            [] { return static_cast<IMUIViewController *>(new Class); });                                              \
        return true;                                                                                                   \
    }()
