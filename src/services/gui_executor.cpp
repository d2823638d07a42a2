#include "services/gui_executor.h"

#include <QMetaObject>
#include <QPointer>
#include <QThreadPool>

namespace tw {

Executor queuedExecutor(QObject* context) {
  QPointer<QObject> target(context);
  return [target](std::function<void()> work) {
    QObject* object = target.data();
    if (!object) return;
    QMetaObject::invokeMethod(object, std::move(work), Qt::QueuedConnection);
  };
}

Executor threadPoolExecutor() {
  return [](std::function<void()> work) {
    // After the application's statics are gone there is no pool: finish the work here.
    if (QThreadPool* pool = QThreadPool::globalInstance()) {
      pool->start(std::move(work));
    } else {
      work();
    }
  };
}

}  // namespace tw
