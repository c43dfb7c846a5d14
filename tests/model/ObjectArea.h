#ifndef TESTS_MODEL_OBJECTAREA_H
#define TESTS_MODEL_OBJECTAREA_H

#include <vector>

#include "QRTVirtualPageItem.h"
#include "model/ModelArea.h"

namespace model {

/// Objects of the manager, and handles that name none.
class ObjectArea final : public ModelArea {
 public:
  using ModelArea::ModelArea;

  const char* name() const override { return "object"; }
  void step() override;
  void verify() override;
  void unpin() override;
  void clear() override;
  std::uint64_t objects() const override { return m_objects.size(); }
  void addPins(Pins& pins) const override;
  bool owns(std::uint64_t offset) const override;

 private:
  struct Object {
    QRTVirtualPageItem item;
    std::uint32_t allocated = 0;  // bytes asked for, before it was trimmed
    std::uint32_t seed = 0;       // of its content
    std::vector<bool> pins;       // one per pin: whether it is for writing
    void* address = nullptr;      // while it is pinned
  };

  void allocate();
  void resize(Object& object);
  void pin(Object& object);
  void pinMany();
  void movePin(Object& from, Object& to);
  void pinned(Object& object, void* address, bool forWriting, const Attempt& attempt);
  void change(Object& object);
  void changeUnpinned(Object& object);
  void dismiss(Object& object);
  void free(Object& object);
  void useStrange();
  void setMemorySize();
  void useNothing();
  void refill(Object& object, void* address);

  std::vector<Object> m_objects;
  std::vector<std::uint64_t> m_stale;  // offsets of objects that were freed
  std::uint64_t m_bytes = 0;           // in objects
};

}  // namespace model

#endif  // TESTS_MODEL_OBJECTAREA_H
