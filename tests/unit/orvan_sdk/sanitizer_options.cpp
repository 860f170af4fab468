// The library handles a failed malloc for a line; so malloc must return null in the sanitizers'
// builds as well.
extern "C" const char* __asan_default_options()
{
    return "allocator_may_return_null=1";
}
extern "C" const char* __tsan_default_options()
{
    return "allocator_may_return_null=1";
}
