#pragma once

#include <QColor>
#include <QFont>
#include <QSizeF>
#include <QString>

class IMBarButtonItem;
class UxLabel;

//! A count badge over a bar button item's top-right corner, with its state kept on the item itself
//! (dynamic properties under "UIBarButtonItem_badgeKey", "UIBarButtonItem_badgeValueKey", ...), so any
//! item gains it. Hidden at "0" by default; bounces when the text changes. Main thread only.
//! Note: the first setting made on an item without a badge builds the badge, whose defaults then
//! overwrite that setting; set it again to take effect.
class IMBarButtonItemBadge {
public:
    //! The badge label, built on first read (with `badgeInit`) over the item's view.
    static UxLabel *badge(IMBarButtonItem *item);
    //! Stores `label` as the badge (null removes it from the item's state).
    static void setBadge(IMBarButtonItem *item, UxLabel *label);
    //! The text shown (null for none).
    static QString badgeValue(const IMBarButtonItem *item);
    //! Stores the text, updates it (bouncing when it changed), then refreshes.
    static void setBadgeValue(IMBarButtonItem *item, const QString &value);
    static QColor badgeBGColor(const IMBarButtonItem *item); //!< background (default red)
    static void setBadgeBGColor(IMBarButtonItem *item, const QColor &c); //!< sets the background
    static QColor badgeTextColor(const IMBarButtonItem *item); //!< text colour (default white)
    static void setBadgeTextColor(IMBarButtonItem *item, const QColor &c); //!< sets the text colour
    static QFont badgeFont(const IMBarButtonItem *item); //!< font (default system 12)
    static void setBadgeFont(IMBarButtonItem *item, const QFont &font); //!< sets the font
    static double badgePadding(const IMBarButtonItem *item); //!< padding (default 6)
    static void setBadgePadding(IMBarButtonItem *item, double padding); //!< sets the padding
    static double badgeMinSize(const IMBarButtonItem *item); //!< minimum size (default 8)
    static void setBadgeMinSize(IMBarButtonItem *item, double size); //!< sets the minimum size
    static double badgeOriginX(const IMBarButtonItem *item); //!< x in the host view
    static void setBadgeOriginX(IMBarButtonItem *item, double x); //!< sets the x
    static double badgeOriginY(const IMBarButtonItem *item); //!< y in the host view (default -4)
    static void setBadgeOriginY(IMBarButtonItem *item, double y); //!< sets the y
    static bool shouldHideBadgeAtZero(const IMBarButtonItem *item); //!< hide at "0" (default YES)
    static void setShouldHideBadgeAtZero(IMBarButtonItem *item, bool hide); //!< sets hiding at "0"
    static bool shouldAnimateBadge(const IMBarButtonItem *item); //!< bounce on change (default YES)
    static void setShouldAnimateBadge(IMBarButtonItem *item, bool animate); //!< sets the bounce

    //! Sets the defaults (colours, font, padding, minimum size, origin, switches) and hangs the label.
    static void badgeInit(IMBarButtonItem *item);
    //! Applies colours and font, hides or shows, and updates the value.
    static void refreshBadge(IMBarButtonItem *item);
    //! The size the current text needs, measured on a copy of the label.
    static QSizeF badgeExpectedSize(IMBarButtonItem *item);
    //! Frame: never narrower than tall, at least the minimum size, plus padding; a pill.
    static void updateBadgeFrame(IMBarButtonItem *item);
    //! Sets the text; with `animated` (and `shouldAnimateBadge`) bounces when it changed.
    static void updateBadgeValueAnimated(IMBarButtonItem *item, bool animated);
    //! A new label with the frame, text and font of `label`.
    static UxLabel *duplicateLabel(const UxLabel *label);
    //! Shrinks the badge away, then removes it (the next read builds a fresh one).
    static void removeBadge(IMBarButtonItem *item);
    //! How many times the badge bounced (for tests and curious hosts).
    static int bounceCount(const IMBarButtonItem *item);
};
