# What libmrib.so exports: the C functions mrib_*, and what is in these namespaces. The standard library's templates
# that were instantiated on the way are not ours to export.
set(MRIB_NAMESPACES Zan Quarn Lumo Routing Routing6 Interface Ip mrib)

# Functions and data, const members, ref-qualified ones; typeinfo, vtables and the like; thunks; statics of functions
# and guards; each followed by the namespace, its length first.
set(MRIB_MANGLED_PREFIXES _ZN _ZNK _ZNR _ZNKR _ZNO _ZNKO _ZT?N _ZTh*_N _ZTh*_NK _ZTv*_N _ZTv*_NK _ZTc*_N _ZTc*_NK
  _ZZN _ZZNK _ZZZN _ZZZNK _ZGVN _ZGVZN _ZGVZNK _ZGRN _ZGRZN _ZGRZNK)

# mrib_write_version_script(FILE): for GNU ld, gold, lld and mold.
function(mrib_write_version_script file)
  set(script "{\n  global:\n    mrib_*;\n")
  foreach(namespace IN LISTS MRIB_NAMESPACES)
    string(LENGTH ${namespace} length)
    foreach(prefix IN LISTS MRIB_MANGLED_PREFIXES)
      string(APPEND script "    ${prefix}${length}${namespace}*;\n")
    endforeach()
  endforeach()
  file(CONFIGURE OUTPUT ${file} CONTENT "${script}  local: *;\n};\n" @ONLY)
endfunction()
