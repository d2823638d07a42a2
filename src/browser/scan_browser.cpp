#include "browser/scan_browser.h"

#include <QDragEnterEvent>
#include <QDropEvent>
#include <QFileIconProvider>
#include <QGraphicsOpacityEffect>
#include <QHeaderView>
#include <QItemSelectionModel>
#include <QLabel>
#include <QMimeData>
#include <QParallelAnimationGroup>
#include <QPropertyAnimation>
#include <QSplitter>
#include <QUrl>
#include <QVBoxLayout>
#include <algorithm>

#include "browser/breadcrumb_bar.h"
#include "browser/display_text.h"
#include "browser/elided_label.h"
#include "browser/preview_window.h"
#include "browser/scan_children_model.h"
#include "browser/scan_list_view.h"
#include "browser/sunburst_view.h"
#include "browser/volume_presentation.h"
#include "cleanup/collector_icon_view.h"
#include "cleanup/collector_panel.h"
#include "cleanup/delete_queue.h"
#include "platform/file_manager.h"
#include "platform/file_url.h"
#include "platform/paths.h"
#include "platform/reduce_motion.h"
#include "platform/terminal_launcher.h"
#include "store/scan_store.h"
#include "ui/byte_count.h"
#include "ui/palette.h"
#include "ui/qt_color.h"

namespace tw {

namespace {

constexpr int kSizeColumnWidth = 96;
constexpr std::size_t kMaxFlyingRows = 12;

QString htmlColor(const Rgba& colour) {
  return toQColor(colour).name();
}

}  // namespace

bool isOpenableFolder(ScanNode* node) {
  if (!node || !node->isDirectory() || node->isVirtualNode()) return false;
  if (node->isAggregate()) return node->size() > 0 && !node->children().empty();
  return true;
}

ScanBrowser::ScanBrowser(ScanNodeRef root, QWidget* parent)
    : ScanBrowser(std::move(root), Options{}, parent) {}

ScanBrowser::ScanBrowser(ScanNodeRef root, Options options, QWidget* parent)
    : QWidget(parent), options_(std::move(options)), scanRoot_(std::move(root)) {
  if (!options_.volumeLayout) options_.volumeLayout = makeLinuxVolumeLayout();
  if (!options_.openTerminal)
    options_.openTerminal = [](const std::string& folder) { openTerminalInFolder(folder); };
  if (!options_.revealInFiles) options_.revealInFiles = revealInFileManager;
  if (scanRoot_) prepareVolumePresentationForRoot(*scanRoot_, *options_.volumeLayout);
  currentNode_ = scanRoot_.get();
  queue_ = new DeleteQueue(this);
  queue_->setScanRoot(scanRoot_);
  isNodeRepresentedInCollector_ = [this](const ScanNode* node) {
    return queue_->isNodeRepresented(node);
  };
  buildWidgets();
  setAcceptDrops(true);
  refreshAnimated(false);
  sunburst_->prepareInitialRevealFromCenter();
}

ScanBrowser::~ScanBrowser() = default;

void ScanBrowser::buildWidgets() {
  QPalette colours = palette();
  colours.setColor(QPalette::Window, toQColor(palette::kBackground));
  colours.setColor(QPalette::Base, toQColor(palette::kBackground));
  colours.setColor(QPalette::AlternateBase, toQColor(palette::kPanel));
  colours.setColor(QPalette::Button, toQColor(palette::kPanel));
  colours.setColor(QPalette::Text, toQColor(palette::kPrimaryText));
  colours.setColor(QPalette::WindowText, toQColor(palette::kPrimaryText));
  colours.setColor(QPalette::ButtonText, toQColor(palette::kPrimaryText));
  colours.setColor(QPalette::Highlight, toQColor(palette::kSystemBlue));
  colours.setColor(QPalette::HighlightedText, Qt::white);
  setPalette(colours);
  setAutoFillBackground(true);

  auto* column = new QVBoxLayout(this);
  column->setContentsMargins(0, 0, 0, 0);
  column->setSpacing(0);

  breadcrumbs_ = new BreadcrumbBar(this);
  QPalette panel = colours;
  panel.setColor(QPalette::Window, toQColor(palette::kPanel));
  breadcrumbs_->setPalette(panel);
  breadcrumbs_->setAutoFillBackground(true);
  connect(breadcrumbs_, &BreadcrumbBar::overviewRequested, this,
          &ScanBrowser::showOverviewRequested);
  connect(breadcrumbs_, &BreadcrumbBar::nodeClicked, this,
          [this](ScanNode* node) { navigateToNode(node, true); });
  column->addWidget(breadcrumbs_);
  auto* hairline = new QWidget(this);
  hairline->setFixedHeight(1);
  hairline->setStyleSheet(
      QStringLiteral("background: %1;").arg(toQColor(palette::kHairline).name(QColor::HexArgb)));
  column->addWidget(hairline);

  splitter_ = new QSplitter(Qt::Horizontal, this);
  splitter_->setChildrenCollapsible(false);
  splitter_->setHandleWidth(1);
  column->addWidget(splitter_, 1);

  sunburst_ = new SunburstView(splitter_);
  sunburst_->setMinimumSize(320, 320);
  connect(sunburst_, &SunburstView::didChooseNode, this, &ScanBrowser::sunburstDidChooseNode);
  connect(sunburst_, &SunburstView::didRequestParent, this, &ScanBrowser::navigateToParent);
  connect(sunburst_, &SunburstView::didPreviewNode, this, &ScanBrowser::sunburstDidPreviewNode);
  splitter_->addWidget(sunburst_);

  auto* side = new QWidget(splitter_);
  auto* sideColumn = new QVBoxLayout(side);
  sideColumn->setContentsMargins(14, 14, 14, 10);
  sideColumn->setSpacing(2);
  // No text here sets a width: long names elide, and the chart keeps its size whatever is shown.
  title_ = new ElidedLabel(Qt::ElideMiddle, side);
  title_->setObjectName(QStringLiteral("title"));
  QFont titleFont;
  titleFont.setPixelSize(17);
  titleFont.setWeight(QFont::DemiBold);
  title_->setFont(titleFont);
  sideColumn->addWidget(title_);
  sizeLine_ = new QLabel(side);
  sizeLine_->setObjectName(QStringLiteral("sizeLine"));
  sizeLine_->setSizePolicy(QSizePolicy::Ignored, QSizePolicy::Preferred);
  QFont sizeFont;
  sizeFont.setPixelSize(13);
  sizeLine_->setFont(sizeFont);
  sizeLine_->setStyleSheet(QStringLiteral("color: %1;").arg(htmlColor(palette::kSecondaryText)));
  sideColumn->addWidget(sizeLine_);
  sideColumn->addSpacing(8);

  rows_ = new ScanChildrenModel(this);
  QFileIconProvider icons;
  rows_->setIcons(icons.icon(QFileIconProvider::Folder), icons.icon(QFileIconProvider::File));
  list_ = new ScanListView(side);
  list_->setModel(rows_);
  list_->setFrameShape(QFrame::NoFrame);
  list_->setAlternatingRowColors(true);
  list_->header()->setSectionResizeMode(ScanChildrenModel::kNameColumn, QHeaderView::Stretch);
  list_->header()->setSectionResizeMode(ScanChildrenModel::kSizeColumn, QHeaderView::Fixed);
  list_->header()->resizeSection(ScanChildrenModel::kSizeColumn, kSizeColumnWidth);
  list_->header()->setDefaultAlignment(Qt::AlignLeft | Qt::AlignVCenter);
  connect(list_, &ScanListView::hoveredNodeChanged, sunburst_, &SunburstView::setListHoveredNode);
  connect(list_, &ScanListView::openRequested, this, &ScanBrowser::openRow);
  connect(list_, &ScanListView::parentRequested, this, &ScanBrowser::navigateToParent);
  connect(list_, &ScanListView::previewToggleRequested, this, &ScanBrowser::togglePreview);
  connect(list_->selectionModel(), &QItemSelectionModel::currentRowChanged, this,
          &ScanBrowser::followCurrentRowInPreview);
  sideColumn->addWidget(list_, 1);

  status_ = new QLabel(side);
  status_->setObjectName(QStringLiteral("readError"));
  status_->setWordWrap(true);
  status_->setTextFormat(Qt::PlainText);
  status_->setSizePolicy(QSizePolicy::Ignored, QSizePolicy::Preferred);
  status_->setStyleSheet(QStringLiteral("color: %1;").arg(htmlColor(palette::kSystemOrange)));
  status_->hide();
  sideColumn->addWidget(status_);
  sideColumn->addSpacing(8);
  collector_ = new CollectorPanel(queue_, side);
  sideColumn->addWidget(collector_);
  splitter_->addWidget(side);
  splitter_->setStretchFactor(0, 3);
  splitter_->setStretchFactor(1, 2);

  preview_ = new PreviewWindow(this);

  // The chart and the list's sizes show what will be left after the cleanup.
  auto remainingSize = [this](const ScanNode* node) {
    if (isNodeRepresentedInCollector_ && isNodeRepresentedInCollector_(node)) return uint64_t{0};
    return queue_->remainingSize(node);
  };
  sunburst_->setSizeFunction(remainingSize);
  rows_->setSizeFunction(remainingSize);
  connect(list_, &ScanListView::collectRequested, this, &ScanBrowser::collectSelectedItem);
  connect(list_, &ScanListView::rowDragActive, collector_->icon(),
          &CollectorIconView::setDragAvailable);
  connect(list_->selectionModel(), &QItemSelectionModel::selectionChanged, this,
          &ScanBrowser::collectorChanged);
  connect(queue_, &DeleteQueue::changed, this, &ScanBrowser::collectorDidChange);
  connect(collector_, &CollectorPanel::itemReturned, this,
          [this](const std::string& path, const QPixmap& picture, const QRect& rect) {
            const auto& nodes = rows_->nodes();
            for (std::size_t row = 0; row < nodes.size(); ++row) {
              if (nodes[row]->path() != path) continue;
              animateRowPicture(picture, rect.translated(collector_->mapTo(this, QPoint(0, 0))),
                                rectInBrowserForMainRow(static_cast<int>(row)));
              return;
            }
          });
  cleanup_ = new CleanupFlow(queue_, this, options_.cleanup, this);
  cleanup_->setScanRoot(scanRoot_);
  connect(collector_, &CollectorPanel::deleteRequested, cleanup_,
          &CleanupFlow::deleteCollectedItems);
  connect(cleanup_, &CleanupFlow::statusMessage, collector_, &CollectorPanel::showStatusMessage);
  connect(cleanup_, &CleanupFlow::statusCleared, collector_, &CollectorPanel::refreshCollector);
  connect(cleanup_, &CleanupFlow::runningChanged, collector_, &CollectorPanel::setCleanupRunning);
  connect(cleanup_, &CleanupFlow::reloadRequested, this,
          &ScanBrowser::reloadSnapshotPreservingCurrentPath);
}

// --- Navigation ------------------------------------------------------------------------------

void ScanBrowser::navigateToNode(ScanNode* node, bool recordHistory) {
  if (!node || node == currentNode_) return;
  if (recordHistory) {
    backHistory_.push_back(currentNode_);
    forwardHistory_.clear();
  }
  currentNode_ = node;
  refreshAnimated(true);
}

void ScanBrowser::navigateBack() {
  if (backHistory_.empty()) return;
  ScanNode* node = backHistory_.back();
  backHistory_.pop_back();
  forwardHistory_.push_back(currentNode_);
  currentNode_ = node;
  refreshAnimated(true);
}

void ScanBrowser::navigateForward() {
  if (forwardHistory_.empty()) return;
  ScanNode* node = forwardHistory_.back();
  forwardHistory_.pop_back();
  backHistory_.push_back(currentNode_);
  currentNode_ = node;
  refreshAnimated(true);
}

void ScanBrowser::navigateToParent() {
  if (canGoToParent()) navigateToNode(currentNode_->parent(), true);
}

void ScanBrowser::refreshAnimated(bool animated) {
  summaryNode_ = nullptr;
  sunburst_->setRootNode(currentNode_ ? currentNode_->ref() : nullptr, animated);
  breadcrumbs_->setCurrentNode(currentNode_);
  updateTitle();
  reloadList();
  emit navigationChanged();
}

std::vector<ScanNode*> ScanBrowser::visibleChildrenForNode(ScanNode* node) const {
  std::vector<ScanNode*> visible;
  if (!node) return visible;
  auto children = node->children();
  visible.reserve(children.size());
  for (ScanNode* child : children) {
    if (child->size() == 0) continue;
    if (isNodeRepresentedInCollector_ && isNodeRepresentedInCollector_(child)) continue;
    visible.push_back(child);
  }
  // Folders holding queued items shrink by them; the list stays largest first by what is left.
  if (queue_ && !queue_->isEmpty()) {
    std::vector<std::pair<uint64_t, ScanNode*>> sized;
    sized.reserve(visible.size());
    for (ScanNode* child : visible) sized.emplace_back(queue_->remainingSize(child), child);
    std::stable_sort(sized.begin(), sized.end(),
                     [](const auto& a, const auto& b) { return a.first > b.first; });
    for (std::size_t i = 0; i < sized.size(); ++i) visible[i] = sized[i].second;
  }
  return visible;
}

void ScanBrowser::setIsNodeRepresentedInCollector(
    std::function<bool(const ScanNode*)> isRepresented) {
  isNodeRepresentedInCollector_ = std::move(isRepresented);
  reloadList();
}

// --- Delete Queue ----------------------------------------------------------------------------

bool ScanBrowser::canCollectSelectedItem() const {
  return list_->selectionModel()->hasSelection();
}

bool ScanBrowser::hasCollectedItems() const {
  return !queue_->isEmpty();
}

void ScanBrowser::collectSelectedItem() {
  // Paths and pictures first: each accepted item changes the rows.
  struct Row {
    std::string path;
    QPixmap picture;
    QRect rect;
  };
  std::vector<Row> rows;
  for (const QModelIndex& index : list_->selectionModel()->selectedRows()) {
    ScanNode* node = rows_->nodeAt(index);
    if (!node) continue;
    // Only rows on screen fly, and only a few of a large selection.
    QRect rect = rows.size() < kMaxFlyingRows ? rectInBrowserForMainRow(index.row()) : QRect();
    rows.push_back({node->path(), rect.isEmpty() ? QPixmap() : grab(rect), rect});
  }
  const QRect icon(collector_->icon()->mapTo(this, QPoint(0, 0)), collector_->icon()->size());
  for (const Row& row : rows) {
    const int before = queue_->count();
    if (queue_->collectPath(row.path) && queue_->count() != before && !row.rect.isEmpty())
      animateRowPicture(row.picture, row.rect, icon);
  }
}

QRect ScanBrowser::rectInBrowserForMainRow(int row) const {
  if (row < 0) return {};
  QRect rect = list_->visualRect(rows_->index(row, ScanChildrenModel::kNameColumn))
                   .united(list_->visualRect(rows_->index(row, ScanChildrenModel::kSizeColumn)));
  rect = rect.intersected(list_->viewport()->rect());
  if (rect.isEmpty()) return {};
  rect.moveTopLeft(list_->viewport()->mapTo(this, rect.topLeft()));
  return rect;
}

void ScanBrowser::animateRowPicture(const QPixmap& picture, const QRect& from, const QRect& to) {
  if (picture.isNull() || from.isEmpty() || to.isEmpty() || !isVisible() || prefersReducedMotion())
    return;
  auto* flight = new QLabel(this);
  flight->setPixmap(picture);
  flight->setAttribute(Qt::WA_TransparentForMouseEvents);
  flight->setGeometry(from);
  auto* fade = new QGraphicsOpacityEffect(flight);
  flight->setGraphicsEffect(fade);
  flight->show();
  flight->raise();
  // The copy keeps its size and fades as its centre travels to the target's centre.
  QEasingCurve easeInOut(QEasingCurve::BezierSpline);
  easeInOut.addCubicBezierSegment(QPointF(0.42, 0), QPointF(0.58, 1), QPointF(1, 1));
  auto* flightPath = new QParallelAnimationGroup(flight);
  auto* move = new QPropertyAnimation(flight, "pos");
  move->setDuration(320);
  move->setEasingCurve(easeInOut);
  move->setStartValue(from.topLeft());
  move->setEndValue(to.center() - QPoint(from.width() / 2, from.height() / 2));
  flightPath->addAnimation(move);
  auto* vanish = new QPropertyAnimation(fade, "opacity");
  vanish->setDuration(320);
  vanish->setStartValue(1.0);
  vanish->setEndValue(0.15);
  flightPath->addAnimation(vanish);
  connect(flightPath, &QParallelAnimationGroup::finished, flight, &QObject::deleteLater);
  flightPath->start();
}

void ScanBrowser::removeAllCollectedItems() {
  queue_->removeAll();
}

void ScanBrowser::deleteCollectedItems() {
  cleanup_->deleteCollectedItems();
}

void ScanBrowser::collectorDidChange() {
  sunburst_->rebuildSegments();
  sunburst_->update();
  reloadList();
  emit collectorChanged();
}

void ScanBrowser::reloadSnapshotPreservingCurrentPath() {
  std::shared_ptr<ScanStore> store = scanRoot_ ? scanRoot_->scanStore() : nullptr;
  if (!store) {
    refreshAnimated(false);
    return;
  }
  const std::string place = currentNode_ ? standardizePath(currentNode_->path()) : std::string();
  ScanNodeRef fresh = store->rootNode();
  if (!fresh) return;
  prepareVolumePresentationForRoot(*fresh, *options_.volumeLayout);
  const std::string rootPath = standardizePath(fresh->path());

  // The folders from the old place up to the root that the saved scan still holds, deepest
  // first, linked below the fresh root.
  std::vector<ScanNodeRef> found;
  if (!place.empty() && place != rootPath) {
    for (std::string path = place; !path.empty() && path != rootPath;) {
      if (ScanNodeRef node = store->nodeAtPath(path)) found.push_back(std::move(node));
      std::string up = parentPath(path);
      if (up == path) break;
      path = std::move(up);
    }
  }
  ScanNode* parent = fresh.get();
  for (auto it = found.rbegin(); it != found.rend(); ++it) {
    (*it)->setParent(parent);
    parent = it->get();
  }
  // The old tree goes away with the old root: nothing may point into it any more.
  preview_->hide();
  previewNode_ = nullptr;
  summaryNode_ = nullptr;
  scanRoot_ = fresh;
  reloadedPath_ = std::move(found);
  currentNode_ = reloadedPath_.empty() ? scanRoot_.get() : reloadedPath_.front().get();
  backHistory_.clear();
  forwardHistory_.clear();
  queue_->setScanRoot(scanRoot_);
  cleanup_->setScanRoot(scanRoot_);
  emit snapshotDidChange(scanRoot_);
  refreshAnimated(false);
}

// --- Chart delegate --------------------------------------------------------------------------

void ScanBrowser::sunburstDidChooseNode(ScanNode* node) {
  if (!node) return;
  if (isOpenableFolder(node)) {
    navigateToNode(node, true);
    return;
  }
  // A resting hover may be showing another folder's rows: fall back to the current folder's.
  if (rows_->rowOf(node) < 0 && summaryNode_) {
    summaryNode_ = nullptr;
    updateTitle();
    reloadList();
  }
  selectRowOf(node);
}

void ScanBrowser::sunburstDidPreviewNode(ScanNode* node) {
  summaryNode_ = node;
  updateTitle();
  list_->clearSelection();
  reloadList();
}

void ScanBrowser::selectRowOf(ScanNode* node) {
  const int row = rows_->rowOf(node);
  if (row < 0) return;
  const QModelIndex index = rows_->index(row, ScanChildrenModel::kNameColumn);
  list_->selectionModel()->setCurrentIndex(
      index, QItemSelectionModel::ClearAndSelect | QItemSelectionModel::Rows);
  list_->scrollTo(index);
}

// --- Title and list --------------------------------------------------------------------------

void ScanBrowser::updateTitle() {
  ScanNode* shown = displayedSummaryNode();
  if (!shown) {
    titleText_.clear();
    title_->clear();
    sizeLine_->clear();
    return;
  }
  const QString name = displayText(shown->name());
  titleText_ = isolatedDisplayText(shown->name());
  if (summaryNode_) {
    const QColor dot =
        sunburst_->colorForNode(summaryNode_).value_or(toQColor(palette::kSecondaryText));
    titleText_ = QStringLiteral("\u25cf ") + titleText_;
    title_->setText(name, dot);
  } else {
    title_->setText(name);
  }
  title_->setToolTip(name);
  sizeLine_->setText(QString::fromStdString(formatByteCount(shown->size())));
}

QString ScanBrowser::sizeText() const {
  return sizeLine_->text();
}

QString ScanBrowser::readErrorText() const {
  return readErrorReported_ ? status_->text() : QString();
}

void ScanBrowser::reloadList() {
  rows_->setNodes(visibleChildrenForNode(displayedSummaryNode()));
  // The rows are new and none is current: an open preview has nothing left to show.
  followCurrentRowInPreview();
  reportReadErrorOnce();
}

void ScanBrowser::reportReadErrorOnce() {
  if (readErrorReported_ || !scanRoot_) return;
  std::shared_ptr<ScanStore> store = scanRoot_->scanStore();
  if (!store) return;
  std::optional<Error> error = store->lastReadError();
  if (!error) return;
  readErrorReported_ = true;
  const QString description = QString::fromStdString(error->description);
  status_->setText(QStringLiteral("Part of this scan could not be read: %1").arg(description));
  status_->show();
  emit readErrorReported(description);
}

// --- List requests ---------------------------------------------------------------------------

void ScanBrowser::openRow(const QModelIndex& index) {
  ScanNode* node = rows_->nodeAt(index);
  if (isOpenableFolder(node)) navigateToNode(node, true);
}

ScanNode* ScanBrowser::previewNode() const {
  return preview_->isVisible() ? previewNode_ : nullptr;
}

void ScanBrowser::togglePreview() {
  if (preview_->isVisible()) {
    preview_->hide();
    previewNode_ = nullptr;
    return;
  }
  showPreviewOfSelection();
}

bool ScanBrowser::showPreviewOfSelection() {
  ScanNode* node = rows_->nodeAt(list_->currentIndex());
  if (!node || node->isDirectory() || node->isVirtualNode()) return false;
  previewNode_ = node;
  preview_->showFile(node->path(), displayText(node->name()), node->size());
  return true;
}

void ScanBrowser::followCurrentRowInPreview() {
  if (!preview_->isVisible() || showPreviewOfSelection()) return;
  preview_->hide();
  previewNode_ = nullptr;
}

// --- Files and Terminal ----------------------------------------------------------------------

void ScanBrowser::showCurrentFolderInFiles() {
  if (currentNode_) options_.revealInFiles({currentNode_->path()});
}

void ScanBrowser::openCurrentFolderInTerminal() {
  if (currentNode_) options_.openTerminal(currentNode_->path());
}

// --- Window events ---------------------------------------------------------------------------

void ScanBrowser::showEvent(QShowEvent* event) {
  QWidget::showEvent(event);
  if (revealed_) return;
  revealed_ = true;
  list_->setFocus();
  sunburst_->animateInitialRevealFromCenter();
}

void ScanBrowser::dragEnterEvent(QDragEnterEvent* event) {
  // Rows dragged out of this list are not new folders to scan.
  const QMimeData* data = event->mimeData();
  if (data->hasUrls() && !data->hasFormat(QString::fromLatin1(kScanNodeMimeType)) &&
      data->urls().front().isLocalFile())
    event->acceptProposedAction();
}

void ScanBrowser::dropEvent(QDropEvent* event) {
  const QList<QUrl> urls = event->mimeData()->urls();
  if (urls.isEmpty()) return;
  const QByteArray encoded = urls.front().toEncoded();
  std::optional<std::string> path =
      pathForFileURL(std::string_view(encoded.constData(), static_cast<size_t>(encoded.size())));
  if (!path) return;
  event->acceptProposedAction();
  emit scanDroppedPath(*path);
}

}  // namespace tw
