// placeholder so the library is never empty
namespace { [[maybe_unused]] int compat_ubox_placeholder; }
