#include "qvutil/errors.h"

#include <atomic>

namespace qvbase {
namespace {

#define QV_TEXT(name) #name,
#define QV_MESSAGE_TEXT(name, text) text,
constexpr const char* kModuleNames[] = {QV_ERROR_MODULES(QV_TEXT)};
constexpr const char* kKeyNames[] = {QV_ERROR_KEYS(QV_TEXT) QV_ERROR_MESSAGES(QV_MESSAGE_TEXT)};
#undef QV_MESSAGE_TEXT
#undef QV_TEXT

#define QV_MODULE_VALUE(name) ErrModule::name,
#define QV_KEY_VALUE(name) ErrKey::name,
#define QV_MESSAGE_VALUE(name, text) ErrKey::name,
constexpr ErrModule kModules[] = {QV_ERROR_MODULES(QV_MODULE_VALUE)};
constexpr ErrKey kKeys[] = {QV_ERROR_KEYS(QV_KEY_VALUE) QV_ERROR_MESSAGES(QV_MESSAGE_VALUE)};
#undef QV_MODULE_VALUE
#undef QV_KEY_VALUE
#undef QV_MESSAGE_VALUE

// Identifier keys come first in ErrKey; the message keys follow them.
#define QV_COUNT(...) +1
constexpr int kIdentifierKeys = 0 QV_ERROR_KEYS(QV_COUNT);
#undef QV_COUNT

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

bool isMessageKey(ErrKey key) noexcept { return static_cast<int>(key) >= kIdentifierKeys; }

bool findErrorKey(std::string_view text, ErrKey& key) noexcept {
  for (ErrKey k : kKeys) {
    const std::string_view name = kKeyNames[static_cast<int>(k)];
    if (isMessageKey(k) ? text.starts_with(name) : text == name) {
      key = k;
      return true;
    }
  }
  return false;
}

}  // namespace qvbase
