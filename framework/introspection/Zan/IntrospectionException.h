#pragma once

#include "Zan/Exception.h"
#include "Zan/Export.h"

namespace Zan {

/// Base of what reflective access throws. `subject` is the attribute, argument or type that it is about.
class ZAN_EXPORT IntrospectionException : public Exception {
 public:
  IntrospectionException(std::string text, std::string subject, std::string_view attribute = {});
  ~IntrospectionException() override;
  const std::string& subject() const { return subject_; }
  /// The attribute, operation or factory that was asked for something: its name, or "#" and its identifier
  /// where there is none with that. Empty only for a value that was converted outside of any.
  const std::string& attribute() const { return attribute_; }

 private:
  std::string subject_;
  std::string attribute_;
};

/// A mutating operation through a handle on a const instance. The text does not name the attribute.
class ZAN_EXPORT ConstInstanceException : public IntrospectionException {
 public:
  explicit ConstInstanceException(std::string_view attribute);
  ~ConstInstanceException() override;
};

/// A value of the wrong type; the subject is the type that was expected.
class ZAN_EXPORT TypeException : public IntrospectionException {
 public:
  TypeException(std::string_view expected, std::string_view found, std::string_view attribute = {});
  ~TypeException() override;
  const std::string& found() const { return found_; }

 private:
  std::string found_;
};

/// An index where there is no collection, none where there is one, or one that the collection can't have.
class ZAN_EXPORT BadIndexException : public IntrospectionException {
 public:
  explicit BadIndexException(std::string_view attribute);
  ~BadIndexException() override;
};

class ZAN_EXPORT OperationNotSupportedException : public IntrospectionException {
 public:
  explicit OperationNotSupportedException(std::string_view attribute);
  ~OperationNotSupportedException() override;
};

class ZAN_EXPORT UnknownAttributeException : public IntrospectionException {
 public:
  UnknownAttributeException(std::string_view type, std::string_view attribute);
  ~UnknownAttributeException() override;
};

/// An argument that the operation does not have.
class ZAN_EXPORT UnknownArgumentException : public IntrospectionException {
 public:
  UnknownArgumentException(std::string_view attribute, std::string_view argument);
  ~UnknownArgumentException() override;
};

/// An argument that the operation needs and did not get.
class ZAN_EXPORT MissingArgumentException : public IntrospectionException {
 public:
  MissingArgumentException(std::string_view attribute, std::string_view argument);
  ~MissingArgumentException() override;
};

}  // namespace Zan
