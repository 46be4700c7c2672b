#include "qvutil/errors.h"

#include <atomic>

namespace qvbase {
namespace {

#define QV_TEXT(name) #name,
constexpr const char* kModuleNames[] = {QV_ERROR_MODULES(QV_TEXT)};
constexpr const char* kKeyNames[] = {QV_ERROR_KEYS(QV_TEXT)};
#undef QV_TEXT

#define QV_MODULE_VALUE(name) ErrModule::name,
#define QV_KEY_VALUE(name) ErrKey::name,
constexpr ErrModule kModules[] = {QV_ERROR_MODULES(QV_MODULE_VALUE)};
constexpr ErrKey kKeys[] = {QV_ERROR_KEYS(QV_KEY_VALUE)};
#undef QV_MODULE_VALUE
#undef QV_KEY_VALUE

std::atomic<ErrorListener> gListener{nullptr};

}  // namespace

void setErrorListener(ErrorListener listener) noexcept { gListener.store(listener); }

void notifyErrorListener(const Exception& e) noexcept {
  if (ErrorListener l = gListener.load(std::memory_order_acquire)) l(e);
}

const char* errorName(ErrModule module) noexcept { return kModuleNames[static_cast<int>(module)]; }

const char* errorName(ErrKey key) noexcept { return kKeyNames[static_cast<int>(key)]; }

std::span<const ErrModule> allErrorModules() noexcept { return kModules; }

std::span<const ErrKey> allErrorKeys() noexcept { return kKeys; }

bool findErrorKey(std::string_view text, ErrKey& key) noexcept {
  for (ErrKey k : kKeys)
    if (text == kKeyNames[static_cast<int>(k)]) {
      key = k;
      return true;
    }
  return false;
}

}  // namespace qvbase
