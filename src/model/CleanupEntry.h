// One node of the tree of cleanable items: what a row shows (icon, label, extra information,
// tooltip), a tri-state selection, a size that may be unknown, and either the file locations
// the node stands for or child entries, never both. Entry kinds change behaviour only by
// overriding the virtual operations below.
//
// Threads: an entry is not locked. A tree that is shown belongs to its owner's thread (see
// DevFiles); scanners build and measure new entries on other threads (measurement fans out
// over the pool) before handing them over, and nothing touches an entry from two threads at
// once.
#pragma once

#include <compare>
#include <cstdint>
#include <filesystem>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "platform/ByteSum.h"

namespace tw {

class HardLinkTracker;
struct MeasurementRecord;
class CleanupEntry;
using CleanupEntryPtr = std::shared_ptr<CleanupEntry>;

class CleanupEntry : public std::enable_shared_from_this<CleanupEntry> {
 public:
  // An image file at a path, a named image of the application, or a named system image.
  struct Icon {
    enum class Kind { path, image, system };
    Kind kind;
    std::string name;  // the file path for Kind::path

    static Icon path(const std::filesystem::path& file) { return {Kind::path, file.string()}; }
    static Icon image(std::string imageName) { return {Kind::image, std::move(imageName)}; }
    static Icon system(std::string imageName) { return {Kind::system, std::move(imageName)}; }
    bool operator==(const Icon&) const = default;
  };

  enum class Selection { on, off, mixed };

  // A signed 64-bit byte count or unknown; unknown orders before every value.
  class Size {
   public:
    static Size unknown() { return Size(); }
    static Size value(int64_t bytes) { return Size(bytes); }
    bool isUnknown() const { return !bytes_.has_value(); }
    // The byte count; 0 when unknown (an unknown size counts 0 in every total).
    int64_t bytesOrZero() const { return bytes_.value_or(0); }
    const std::optional<int64_t>& bytes() const { return bytes_; }
    bool operator==(const Size&) const = default;
    std::strong_ordering operator<=>(const Size& other) const;

   private:
    Size() = default;
    explicit Size(int64_t bytes) : bytes_(bytes) {}
    std::optional<int64_t> bytes_;
  };

  // tooltipText defaults to label + " " + extraInfo; both are stored trimmed.
  CleanupEntry(std::string label, std::string extraInfo, std::optional<std::string> tooltipText = std::nullopt,
               std::optional<Icon> icon = std::nullopt, bool tooltip = false, bool selected = false);
  virtual ~CleanupEntry() = default;
  CleanupEntry(const CleanupEntry&) = delete;
  CleanupEntry& operator=(const CleanupEntry&) = delete;

  const std::optional<Icon>& icon() const { return icon_; }
  const std::string& label() const { return label_; }
  const std::string& extraInfo() const { return extraInfo_; }
  const std::string& tooltipText() const { return tooltipText_; }
  bool tooltip() const { return tooltip_; }

  // Overridable operations, in slot order.
  virtual std::string itemDescription() const;
  virtual Selection selection() const { return selection_; }
  virtual void setSelection(Selection selection) { selection_ = selection; }
  virtual Size size() const { return size_; }
  virtual void setSize(Size size) { size_ = size; }
  virtual int64_t selectedSize() const;
  virtual const std::vector<std::filesystem::path>& paths() const { return paths_; }
  virtual void setPaths(std::vector<std::filesystem::path> paths);
  virtual CleanupEntryPtr parent() const { return parent_.lock(); }
  virtual void setParent(const CleanupEntryPtr& parent) { parent_ = parent; }
  virtual const std::vector<CleanupEntryPtr>& items() const { return items_; }
  virtual void setItems(std::vector<CleanupEntryPtr> items);
  virtual size_t nonEmptyItemCount() const;
  virtual bool isEmpty() const;
  virtual bool hasPaths() const;
  virtual std::vector<std::filesystem::path> displayPaths() const { return paths_; }
  virtual bool isSelected() const { return selection() != Selection::off; }
  virtual void addItem(const CleanupEntryPtr& entry);
  virtual void addItems(const std::vector<CleanupEntryPtr>& entries);
  virtual void removeAllItems();
  virtual void addPath(const std::filesystem::path& path);
  virtual void addPaths(const std::vector<std::filesystem::path>& paths);
  // Deletes one path of this entry (or, with no path, whatever the kind deletes without one).
  // Throws tw::Error on failure. By default removes the item at the path permanently.
  virtual void deleteItem(const std::optional<std::filesystem::path>& path);
  virtual void select();
  virtual void deselect();
  // The entry's contribution to its parent's size; absent when it contributes nothing.
  virtual std::optional<Size> calculateSize();
  virtual std::optional<Size> calculateSize(HardLinkTracker& tracker);
  virtual std::optional<Size> updateSize();
  virtual std::optional<Size> sizeOrCalculate();
  virtual std::optional<Size> sizeOrCalculate(HardLinkTracker& tracker);
  // Walks, in parallel, whatever in the subtree was never measured, each entry with a tracker
  // of its own, and keeps what each walk counted, so every calculation after it charges the
  // files without walking them again. Kinds whose size needs no walk measure nothing here.
  virtual void recordMeasurement();
  virtual Selection updateSelection();
  // Whether the user may tick the entry: not when it has nothing to clean, nor for kinds that
  // are shown for reference only.
  virtual bool isCheckable() const { return !isEmpty(); }
  virtual void clear();
  virtual std::string description(int level) const;

  // What a tick does: this entry and its whole subtree on (off for Selection::off; mixed
  // counts as on), then every ancestor recomputed up to the root. Returns each entry of the
  // tree whose selection changed, so a view repaints exactly those.
  std::vector<CleanupEntry*> changeSelection(Selection selection);

 private:
  void recordOwnPaths();

  std::optional<Icon> icon_;
  std::string label_;
  std::string extraInfo_;
  std::string tooltipText_;
  bool tooltip_;
  Selection selection_;
  Size size_ = Size::unknown();
  std::vector<std::filesystem::path> paths_;
  // What the first measurement of the paths counted; dropped whenever the paths change.
  std::shared_ptr<const MeasurementRecord> measured_;
  std::weak_ptr<CleanupEntry> parent_;
  std::vector<CleanupEntryPtr> items_;
};

}  // namespace tw
