// IPException: the one exception type of request processing.
//
// Its text is the name of the function that raised it, ":" and the message,
// with nothing in between ("xmlParser:Empty XML document"). The request
// frames catch it and send show() back to the front end as the reply, so a
// failing request never ends the task. Raised by value, caught by const
// reference.
#ifndef TARNWICK_REQUEST_IPEXCEPTION_H
#define TARNWICK_REQUEST_IPEXCEPTION_H

#include <string>

class IPException {
 public:
  IPException() = default;
  IPException(const char* function, const char* message);
  IPException(const IPException& other) = default;
  IPException& operator=(const IPException& other) = default;
  virtual ~IPException() = default;

  // "function:message" as given at construction; empty for a default one.
  std::string show() const { return text_; }

 private:
  std::string text_;
};

#endif  // TARNWICK_REQUEST_IPEXCEPTION_H
