// RequestTools: the XML parser and text converters that request contexts
// work with, set up once and lent to the contexts of one worker thread in
// turn.
//
// Building a parser and a converter costs more than parsing a request, so a
// worker that answers many requests keeps one set for its whole life. A
// context that borrows them (IPOOO(RequestTools&)) behaves as one that
// builds its own: the parser is configured afresh by every parse and its
// document is released when the context ends, and a converter carries
// nothing from one text to the next.
//
// While an object exists it holds a use of the XML toolkit (the toolkit is
// initialised with the first use in the process and terminated with the
// last). One object belongs to one thread; the contexts that borrow it must
// not outlive it.
#ifndef TARNWICK_REQUEST_REQUESTTOOLS_H
#define TARNWICK_REQUEST_REQUESTTOOLS_H

#include <xercesc/parsers/XercesDOMParser.hpp>

#include <memory>

#include "request/XMLStringTranslate.h"

// Takes and gives back a use of the XML toolkit. The toolkit counts its
// uses without a guard of its own, so the calls are serialised; a failed
// initialisation is logged.
void takeToolkitUse();
void giveBackToolkitUse();

class RequestTools {
 public:
  RequestTools();
  ~RequestTools();
  RequestTools(const RequestTools&) = delete;
  RequestTools& operator=(const RequestTools&) = delete;

  xercesc::XercesDOMParser& parser() { return *parser_; }
  // The context's converter, made for "utf-8".
  XMLStringTranslate& translator() { return *translator_; }
  // A second UTF-8 converter for single texts (attribute values, reply
  // attributes), so that they do not disturb the context's converter.
  XMLStringTranslate& utf8() { return *utf8_; }

 private:
  std::unique_ptr<XMLStringTranslate> translator_;
  std::unique_ptr<XMLStringTranslate> utf8_;
  std::unique_ptr<xercesc::XercesDOMParser> parser_;
};

#endif  // TARNWICK_REQUEST_REQUESTTOOLS_H
