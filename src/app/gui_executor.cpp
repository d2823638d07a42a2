#include "app/gui_executor.h"

#include <QMetaObject>
#include <QPointer>

namespace tw {

Executor queuedExecutor(QObject* context) {
  QPointer<QObject> target(context);
  return [target](std::function<void()> work) {
    QObject* object = target.data();
    if (!object) return;
    QMetaObject::invokeMethod(object, std::move(work), Qt::QueuedConnection);
  };
}

}  // namespace tw
