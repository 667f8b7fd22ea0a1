// Screenshots of the base screens: a screen in a tinted navigation bar, and a stack of two screens
// with a back arrow and bar items.
#include <QLabel>
#include <QVBoxLayout>

#include "IMBarButtonItem.h"
#include "IMImage.h"
#include "IMNavigationBar.h"
#include "IMNavigationController.h"
#include "IMNavigationItem.h"
#include "IMViewController.h"
#include "IMWindow.h"
#include "Screenshots.h"

namespace {
class TextScreen : public IMViewController {
public:
    explicit TextScreen(const QString &text)
        : m_text(text)
    {
    }

protected:
    void loadView() override
    {
        setStyleSheet(QStringLiteral("background: #ffffff;"));
        auto *layout = new QVBoxLayout(this);
        auto *label = new QLabel(m_text, this);
        label->setAlignment(Qt::AlignCenter);
        label->setWordWrap(true);
        label->setStyleSheet(QStringLiteral("color: #8e8e93; font-size: 15px;"));
        layout->addWidget(label);
    }

private:
    QString m_text;
};

IMWindow *windowWith(IMUIViewController *root)
{
    auto *window = new IMWindow;
    window->setRootViewController(root);
    return window;
}
} // namespace

PARLO_SCREENSHOT({"base-screen", [] {
                      auto *screen = new TextScreen(QStringLiteral("一個基本畫面：標題以導覽列的色調顯示"));
                      screen->setTitle(QStringLiteral("聊天室"));
                      auto *nav = new IMNavigationController(screen);
                      nav->setBarTintColor(QColor(36, 113, 163));
                      nav->setTintColor(Qt::white);
                      nav->setUIStatusBarStyleLight(true);
                      return static_cast<QWidget *>(windowWith(nav));
                  }});

PARLO_SCREENSHOT({"base-navigation-stack", [] {
                      auto *root = new TextScreen(QStringLiteral("Root"));
                      root->setTitle(QStringLiteral("聊天室列表"));
                      auto *nav = new IMNavigationController(root);
                      auto *window = windowWith(nav);
                      auto *second = new TextScreen(QStringLiteral("第二個畫面：左上角是空白標題的返回箭頭"));
                      second->setTitle(QStringLiteral("Alice"));
                      second->navigationItem()->setRightBarButtonItem(
                          new IMBarButtonItem(QStringLiteral("完成"), IMBarButtonItem::Done));
                      nav->pushViewController(second, false);
                      return static_cast<QWidget *>(window);
                  }});

PARLO_SCREENSHOT({"base-navigation-dark", [] {
                      auto *screen = new TextScreen(QStringLiteral("黑色導覽列與圖片按鈕"));
                      screen->setTitle(QStringLiteral("Parlo"));
                      screen->navigationItem()->setLeftBarButtonItem(
                          new IMBarButtonItem(IMImage::named(QStringLiteral("expand_arrow")), IMBarButtonItem::Plain));
                      auto *nav = new IMNavigationController(screen);
                      nav->navigationBar()->setBarStyle(IMNavigationBar::BarStyleBlack);
                      nav->setTintColor(QColor(255, 204, 0));
                      return static_cast<QWidget *>(windowWith(nav));
                  }});
