// placeholder so the library is never empty
namespace { [[maybe_unused]] int compat_ubus_placeholder; }
