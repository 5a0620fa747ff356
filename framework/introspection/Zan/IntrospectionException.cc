#include "Zan/IntrospectionException.h"

namespace Zan {

namespace {

std::string quoted(std::string_view text) {
  return '"' + std::string(text) + '"';
}

}  // namespace

IntrospectionException::IntrospectionException(std::string text, std::string subject,
                                               std::string_view attribute)
    : Exception(std::move(text), ExceptionId::introspection),
      subject_(std::move(subject)),
      attribute_(attribute) {}
IntrospectionException::~IntrospectionException() = default;

ConstInstanceException::ConstInstanceException(std::string_view attribute)
    : IntrospectionException("attempting to modify a const instance", std::string(attribute), attribute) {}
ConstInstanceException::~ConstInstanceException() = default;

TypeException::TypeException(std::string_view expected, std::string_view found, std::string_view attribute)
    : IntrospectionException("expected a value of type " + std::string(expected) + ", found " +
                                 std::string(found) + (attribute.empty() ? "" : " for " + quoted(attribute)),
                             std::string(expected), attribute),
      found_(found) {}
TypeException::~TypeException() = default;

BadIndexException::BadIndexException(std::string_view attribute)
    : IntrospectionException("bad index for attribute " + quoted(attribute), std::string(attribute),
                             attribute) {}
BadIndexException::~BadIndexException() = default;

OperationNotSupportedException::OperationNotSupportedException(std::string_view attribute)
    : IntrospectionException("operation not supported by attribute " + quoted(attribute),
                             std::string(attribute), attribute) {}
OperationNotSupportedException::~OperationNotSupportedException() = default;

UnknownAttributeException::UnknownAttributeException(std::string_view type, std::string_view attribute)
    : IntrospectionException("no attribute " + quoted(attribute) + " in " + std::string(type),
                             std::string(attribute), attribute) {}
UnknownAttributeException::~UnknownAttributeException() = default;

UnknownArgumentException::UnknownArgumentException(std::string_view attribute, std::string_view argument)
    : IntrospectionException("unknown argument " + quoted(argument) + " of " + quoted(attribute),
                             std::string(argument), attribute) {}
UnknownArgumentException::~UnknownArgumentException() = default;

MissingArgumentException::MissingArgumentException(std::string_view attribute, std::string_view argument)
    : IntrospectionException("missing argument " + quoted(argument) + " of " + quoted(attribute),
                             std::string(argument), attribute) {}
MissingArgumentException::~MissingArgumentException() = default;

}  // namespace Zan
