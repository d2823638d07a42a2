#include "browser/preview_window.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <QApplication>
#include <QBuffer>
#include <QFile>
#include <QFileIconProvider>
#include <QImageReader>
#include <QKeyEvent>
#include <QLabel>
#include <QMimeDatabase>
#include <QPlainTextEdit>
#include <QPointer>
#include <QStackedWidget>
#include <QStyle>
#include <QThreadPool>
#include <QVBoxLayout>
#include <cerrno>

#include "browser/display_text.h"
#include "platform/paths.h"
#include "ui/byte_count.h"
#include "ui/palette.h"
#include "ui/qt_color.h"

namespace tw {

namespace {

constexpr QSize kImageBounds(720, 540);

// Up to `limit` bytes from the start of `fd`, without moving its offset.
QByteArray readHead(int fd, int64_t limit) {
  QByteArray head(static_cast<qsizetype>(limit), Qt::Uninitialized);
  qsizetype filled = 0;
  while (filled < head.size()) {
    const ssize_t n = pread(fd, head.data() + filled, static_cast<size_t>(head.size() - filled),
                            static_cast<off_t>(filled));
    if (n < 0 && errno == EINTR) continue;
    if (n <= 0) break;
    filled += n;
  }
  head.truncate(filled);
  return head;
}

QImage readScaledImage(int fd, QSize bounds) {
  QFile file;
  const int own = dup(fd);
  if (own < 0 || !file.open(own, QIODevice::ReadOnly, QFileDevice::AutoCloseHandle)) {
    if (own >= 0) close(own);
    return {};
  }
  QImageReader reader(&file);
  reader.setAutoTransform(true);
  const QSize size = reader.size();
  if (size.isValid() && (size.width() > bounds.width() || size.height() > bounds.height()))
    reader.setScaledSize(size.scaled(bounds, Qt::KeepAspectRatio));
  return reader.read();
}

}  // namespace

PreviewContent readPreviewContent(const std::string& path, QSize bounds) {
  PreviewContent content;
  const std::string_view nameBytes = displayNameForPath(path);
  const QString name =
      QString::fromUtf8(nameBytes.data(), static_cast<qsizetype>(nameBytes.size()));
  const QMimeDatabase mimes;
  const int fd = open(path.c_str(), O_RDONLY | O_NONBLOCK | O_NOCTTY | O_CLOEXEC);
  if (fd < 0) {
    struct stat st {};
    if (lstat(path.c_str(), &st) != 0 && (errno == ENOENT || errno == ENOTDIR)) {
      content.kind = PreviewContent::Kind::kMissing;
      return content;
    }
    const QMimeType type = mimes.mimeTypeForFile(name, QMimeDatabase::MatchExtension);
    content.typeName = type.comment();
    content.mimeIconName = type.iconName();
    return content;
  }
  struct stat st {};
  QByteArray head;
  if (fstat(fd, &st) == 0 && S_ISREG(st.st_mode)) head = readHead(fd, kPreviewTextLimit);
  const QMimeType type = S_ISREG(st.st_mode)
                             ? mimes.mimeTypeForFileNameAndData(name, head)
                             : mimes.mimeTypeForFile(name, QMimeDatabase::MatchExtension);
  content.typeName = type.comment();
  content.mimeIconName = type.iconName();
  if (S_ISREG(st.st_mode)) {
    // Images first: shared-mime-info makes some image types (SVG) a kind of text.
    if (QImageReader::supportedMimeTypes().contains(type.name().toLatin1())) {
      content.image = readScaledImage(fd, bounds);
      if (!content.image.isNull()) content.kind = PreviewContent::Kind::kImage;
    }
    if (content.kind != PreviewContent::Kind::kImage &&
        type.inherits(QStringLiteral("text/plain"))) {
      content.kind = PreviewContent::Kind::kText;
      content.text = QString::fromUtf8(head);
    }
  }
  close(fd);
  return content;
}

PreviewWindow::PreviewWindow(QWidget* parent) : QWidget(parent, Qt::Tool) {
  setWindowTitle(QStringLiteral("Preview"));
  resize(kImageBounds + QSize(40, 40));
  QPalette colours = palette();
  colours.setColor(QPalette::Window, toQColor(palette::kBackground));
  colours.setColor(QPalette::Base, toQColor(palette::kPanel));
  colours.setColor(QPalette::Text, toQColor(palette::kPrimaryText));
  colours.setColor(QPalette::WindowText, toQColor(palette::kPrimaryText));
  setPalette(colours);
  setAutoFillBackground(true);

  auto* column = new QVBoxLayout(this);
  column->setContentsMargins(12, 12, 12, 12);
  pages_ = new QStackedWidget(this);
  column->addWidget(pages_);

  imageLabel_ = new QLabel(pages_);
  imageLabel_->setAlignment(Qt::AlignCenter);
  pages_->addWidget(imageLabel_);

  textView_ = new QPlainTextEdit(pages_);
  textView_->setReadOnly(true);
  textView_->setLineWrapMode(QPlainTextEdit::NoWrap);
  QFont mono(QStringLiteral("monospace"));
  mono.setStyleHint(QFont::Monospace);
  mono.setPixelSize(12);
  textView_->setFont(mono);
  pages_->addWidget(textView_);

  infoPage_ = new QWidget(pages_);
  auto* info = new QVBoxLayout(infoPage_);
  info->addStretch(1);
  iconLabel_ = new QLabel(infoPage_);
  iconLabel_->setAlignment(Qt::AlignCenter);
  info->addWidget(iconLabel_);
  infoLabel_ = new QLabel(infoPage_);
  infoLabel_->setAlignment(Qt::AlignCenter);
  infoLabel_->setTextFormat(Qt::PlainText);
  infoLabel_->setWordWrap(true);
  info->addWidget(infoLabel_);
  info->addStretch(1);
  pages_->addWidget(infoPage_);
}

void PreviewWindow::showFile(const std::string& path, const QString& name, uint64_t size) {
  path_ = path;
  name_ = name;
  size_ = size;
  kind_ = PreviewContent::Kind::kOther;
  const uint64_t generation = ++generation_;
  setWindowTitle(name);
  iconLabel_->clear();
  infoLabel_->setText(name);
  pages_->setCurrentWidget(infoPage_);
  show();
  raise();

  // The file may be large or on a slow disk: read it on the pool, present it here.
  QPointer<PreviewWindow> self(this);
  QThreadPool::globalInstance()->start([self, path, generation] {
    PreviewContent content = readPreviewContent(path, kImageBounds);
    QMetaObject::invokeMethod(
        qApp,
        [self, generation, content = std::move(content)] {
          if (self && self->generation_ == generation) self->present(content);
        },
        Qt::QueuedConnection);
  });
}

void PreviewWindow::keyPressEvent(QKeyEvent* event) {
  if (event->key() == Qt::Key_Space || event->key() == Qt::Key_Escape) {
    hide();
    return;
  }
  QWidget::keyPressEvent(event);
}

QString PreviewWindow::shownText() const {
  switch (kind_) {
    case PreviewContent::Kind::kText:
      return textView_->toPlainText();
    default:
      return infoLabel_->text();
  }
}

void PreviewWindow::present(const PreviewContent& content) {
  kind_ = content.kind;
  const QString sizeText = QString::fromStdString(formatByteCount(size_));
  switch (content.kind) {
    case PreviewContent::Kind::kImage:
      imageLabel_->setPixmap(QPixmap::fromImage(content.image));
      pages_->setCurrentWidget(imageLabel_);
      break;
    case PreviewContent::Kind::kText:
      textView_->setPlainText(content.text);
      pages_->setCurrentWidget(textView_);
      break;
    case PreviewContent::Kind::kMissing:
      iconLabel_->setPixmap(style()->standardIcon(QStyle::SP_MessageBoxWarning).pixmap(64, 64));
      infoLabel_->setText(name_ + QStringLiteral("\n\nThis file is no longer on disk."));
      pages_->setCurrentWidget(infoPage_);
      break;
    case PreviewContent::Kind::kOther: {
      const QIcon fallback = QFileIconProvider().icon(QFileIconProvider::File);
      const QIcon icon = QIcon::fromTheme(content.mimeIconName, fallback);
      iconLabel_->setPixmap(icon.pixmap(128, 128));
      infoLabel_->setText(name_ + QLatin1Char('\n') + content.typeName + QLatin1Char('\n') +
                          sizeText);
      pages_->setCurrentWidget(infoPage_);
      break;
    }
  }
  emit contentShown();
}

}  // namespace tw
