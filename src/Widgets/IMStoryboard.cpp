#include "IMStoryboard.h"

#include <QHash>
#include <QMutex>
#include <map>
#include <memory>

#include "IMUIViewController.h"

// Registrations happen at library load and from hosts on the main thread; the lock only guards
// against a host registering from another thread.
namespace {
QMutex g_lock;
QHash<QString, QHash<QString, IMStoryboard::Factory>> &registry()
{
    static QHash<QString, QHash<QString, IMStoryboard::Factory>> r;
    return r;
}
std::map<QString, std::unique_ptr<IMStoryboard>> &boards()
{
    static std::map<QString, std::unique_ptr<IMStoryboard>> b;
    return b;
}
} // namespace

IMStoryboard::IMStoryboard(const QString &name)
    : m_name(name)
{
}

IMStoryboard *IMStoryboard::storyboardWithName(const QString &name)
{
    QMutexLocker lock(&g_lock);
    if (!registry().contains(name))
        return nullptr;
    std::unique_ptr<IMStoryboard> &board = boards()[name];
    if (!board)
        board.reset(new IMStoryboard(name)); // lives for the process, like the registry
    return board.get();
}

void IMStoryboard::registerViewController(const QString &name, const QString &identifier, const Factory &factory)
{
    QMutexLocker lock(&g_lock);
    if (factory)
        registry()[name][identifier] = factory;
    else
        registry()[name].remove(identifier);
}

void IMStoryboard::unregisterViewController(const QString &name, const QString &identifier)
{
    QMutexLocker lock(&g_lock);
    auto it = registry().find(name);
    if (it != registry().end())
        it->remove(identifier);
}

QString IMStoryboard::name() const { return m_name; }

bool IMStoryboard::contains(const QString &identifier) const
{
    QMutexLocker lock(&g_lock);
    return registry().value(m_name).contains(identifier);
}

IMUIViewController *IMStoryboard::instantiateViewControllerWithIdentifier(const QString &identifier) const
{
    Factory factory;
    {
        QMutexLocker lock(&g_lock);
        factory = registry().value(m_name).value(identifier);
    }
    if (!factory)
        return nullptr;
    return factory();
}
