#include "Zan/GenericIf.h"

#include <algorithm>

#include "Zan/Entity.h"

namespace Zan {

namespace {

/// The arguments of a form, each in its place; throws for one that is not known, given twice or missing.
std::vector<Value> inOrder(std::string_view what, std::span<const ArgumentRow> rows,
                           const std::vector<NamedArgument>& arguments) {
  std::vector<Value> values(rows.size());
  std::vector<bool> given(rows.size());
  for (std::size_t i = 0; i < arguments.size(); ++i) {
    const NamedArgument& argument = arguments[i];
    const auto named = std::find_if(rows.begin(), rows.end(),
                                    [&](const ArgumentRow& row) { return row.name == argument.name; });
    const std::size_t place = argument.name.empty() ? i : static_cast<std::size_t>(named - rows.begin());
    if (place >= rows.size() || given[place]) {
      throw UnknownArgumentException(what,
                                     argument.name.empty() ? "#" + std::to_string(i + 1) : argument.name);
    }
    values[place] = argument.value;
    given[place] = true;
  }
  for (std::size_t i = 0; i < rows.size(); ++i) {
    if (!given[i]) throw MissingArgumentException(what, rows[i].name);
  }
  return values;
}

}  // namespace

std::string_view Value::typeName() const {
  if (!isObject()) return isNothing() ? "nothing" : typeName_;
  const ObjectRef ref = object();
  return ref ? ref.get()->fwkType()->name() : "null";
}

std::string Value::text() const {
  if (!isObject()) return isNothing() ? "" : text_(value_);
  const ObjectRef ref = object();
  const auto* entity = dynamic_cast<const Entity*>(ref.get());
  return !ref ? "null" : entity ? entity->fullName() : std::string(typeName());
}

const TypeEntry* GenericIf::type() const {
  return object_ ? Introspection::instance().typeOf(*object_.get()) : nullptr;
}

AttributeId GenericIf::attributeId(std::string_view name) const {
  for (const TypeEntry* entry = type(); entry; entry = entry->base) {
    if (const AttributeRow* row = entry->row(name)) return row->id;
  }
  throw UnknownAttributeException(type() ? type()->table->name : "null", name);
}

/// Own table first, then those of the base types.
const AttributeRow& GenericIf::row(AttributeId attribute) const {
  for (const TypeEntry* entry = type(); entry; entry = entry->base) {
    if (const AttributeRow* row = entry->row(attribute)) return *row;
  }
  throw UnknownAttributeException(type() ? type()->table->name : "null", "#" + std::to_string(attribute));
}

Value GenericIf::attributeOp(Operation operation, Arguments arguments) const {
  const AttributeOp op = operation.op;
  if (object_.isConst() && isMutating(op)) {
    const TypeEntry* entry = type();
    const AttributeRow* own = entry ? entry->row(operation.attribute) : nullptr;
    throw ConstInstanceException(own ? own->name : "");
  }
  const AttributeRow& r = row(operation.attribute);
  const auto requireArguments = [&](std::size_t n, std::string_view what) {
    if (arguments.size() < n) throw MissingArgumentException(r.name, what);
    if (arguments.size() > n) throw UnknownArgumentException(r.name, "#" + std::to_string(n + 1));
  };
  const auto require = [&](auto function) {
    if (!function) throw OperationNotSupportedException(r.name);
    return function;
  };
  switch (op) {
    case AttributeOp::read:
      if (!arguments.empty()) throw BadIndexException(r.name);
      return asConstAsThis(require(r.get)(*object_.get()));
    case AttributeOp::readAt:
      if (!r.at) throw BadIndexException(r.name);
      requireArguments(1, "key");
      return asConstAsThis(r.at(*object_.get(), arguments[0]));
    case AttributeOp::count:
      require(r.count);
      requireArguments(0, "");
      return Value::of(r.count(*object_.get()));
    case AttributeOp::iterate:
      break;  // an iterator is no value: `iterator`
    case AttributeOp::set:
      require(r.set);
      requireArguments(1, "value");
      r.set(mutableObject(), arguments[0], r.type);
      return {};
    case AttributeOp::erase:
      require(r.erase);
      requireArguments(1, "key");
      r.erase(mutableObject(), arguments[0]);
      return {};
    case AttributeOp::eraseAll:
      require(r.eraseAll);
      requireArguments(0, "");
      r.eraseAll(mutableObject());
      return {};
    case AttributeOp::invoke:
      if (r.forms.empty()) throw OperationNotSupportedException(r.name);
      return invoke(r, arguments);
  }
  throw OperationNotSupportedException(r.name);
}

/// An object that is reached through a const handle is const too.
Value GenericIf::asConstAsThis(Value value) const {
  if (!object_.isConst() || !value.isObject()) return value;
  return ObjectRef(Ptr<PtrInterface const>(value.object().get()));
}

/// The form with this number of arguments; else the error is about the longest.
Value GenericIf::invoke(const AttributeRow& row, Arguments arguments) const {
  const Form* longest = &row.forms.front();
  for (const Form& form : row.forms) {
    if (form.arguments.size() == arguments.size())
      return form.call(mutableObject(), arguments, form.arguments);
    if (form.arguments.size() > longest->arguments.size()) longest = &form;
  }
  if (arguments.size() < longest->arguments.size()) {
    throw MissingArgumentException(row.name, longest->arguments[arguments.size()].name);
  }
  throw UnknownArgumentException(row.name, "#" + std::to_string(longest->arguments.size() + 1));
}

std::unique_ptr<AttributeIterator> GenericIf::iterator(AttributeId attribute) const {
  const AttributeRow& r = row(attribute);
  if (!r.iterate) throw OperationNotSupportedException(r.name);
  return r.iterate(object_);
}

Value GenericIf::read(std::string_view name) const {
  return attributeOp({attributeId(name), AttributeOp::read});
}

Value GenericIf::read(std::string_view name, const Value& key) const {
  return attributeOp({attributeId(name), AttributeOp::readAt}, Arguments(&key, 1));
}

void GenericIf::set(std::string_view name, const Value& value) const {
  attributeOp({attributeId(name), AttributeOp::set}, Arguments(&value, 1));
}

Value GenericIf::call(std::string_view name, const std::vector<NamedArgument>& arguments) const {
  const AttributeId id = attributeId(name);
  const AttributeRow& r = row(id);
  if (object_.isConst()) throw ConstInstanceException(r.name);
  if (r.forms.empty()) throw OperationNotSupportedException(r.name);
  const auto fits = [&](const Form& form) { return form.arguments.size() == arguments.size(); };
  auto form = std::find_if(r.forms.begin(), r.forms.end(), fits);
  if (form == r.forms.end()) form = r.forms.begin();
  return form->call(mutableObject(), inOrder(r.name, form->arguments, arguments), form->arguments);
}

Value callFactory(std::string_view name, const std::vector<NamedArgument>& arguments) {
  const FactoryRow* factory = Introspection::instance().factory(name);
  if (!factory) throw UnknownAttributeException("the factories", name);
  return factory->call(inOrder(name, factory->arguments, arguments), factory->arguments);
}

}  // namespace Zan
