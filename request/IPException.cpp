#include "request/IPException.h"

IPException::IPException(const char* function, const char* message) {
  if (function != nullptr) text_ = function;
  text_ += ':';
  if (message != nullptr) text_ += message;
}
