/* The part of bionic's <sys/system_properties.h> that libql_is uses, for
 * Linux hosts, where no Debian package provides it. */
#ifndef QLIS_BIONIC_SYS_SYSTEM_PROPERTIES_H
#define QLIS_BIONIC_SYS_SYSTEM_PROPERTIES_H

#define PROP_NAME_MAX 32
#define PROP_VALUE_MAX 92

#ifdef __cplusplus
extern "C" {
#endif

/* As bionic's: copies the value (at most PROP_VALUE_MAX bytes with its
 * terminating zero) and returns its length; an unset property gives "" and
 * 0. */
__attribute__((visibility("default"))) int __system_property_get(const char *name,
                                                                 char *value);

#ifdef __cplusplus
}
#endif

#endif
