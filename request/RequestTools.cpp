#include "request/RequestTools.h"

#include <xercesc/util/PlatformUtils.hpp>
#include <xercesc/util/XMLException.hpp>

#include <mutex>
#include <string>

#include "request/TaskLog.h"

using namespace xercesc;

namespace {

std::mutex& toolkitMutex() {
  static std::mutex mutex;
  return mutex;
}

void logToolkitError(const char* what, const XMLException& e) {
  char* message = XMLString::transcode(e.getMessage());
  taskLog(std::string(what) + "(" + (message ? message : "") + ")");
  XMLString::release(&message);
}

}  // namespace

void takeToolkitUse() {
  std::lock_guard lock(toolkitMutex());
  try {
    XMLPlatformUtils::Initialize(XMLUni::fgXercescDefaultLocale);
  } catch (const XMLException& e) {
    logToolkitError("XML toolkit initialization error", e);
  }
}

void giveBackToolkitUse() {
  std::lock_guard lock(toolkitMutex());
  try {
    XMLPlatformUtils::Terminate();
  } catch (const XMLException& e) {
    logToolkitError("XML toolkit terminate error", e);
  }
}

RequestTools::RequestTools() {
  takeToolkitUse();
  translator_ = std::make_unique<XMLStringTranslate>("utf-8");
  utf8_ = std::make_unique<XMLStringTranslate>("UTF-8");
  parser_ = std::make_unique<XercesDOMParser>();
}

RequestTools::~RequestTools() {
  parser_.reset();
  utf8_.reset();
  translator_.reset();
  giveBackToolkitUse();
}
