// The library asks malloc for what a line needs and answers when there is none; so must the sanitizers'
// malloc.
extern "C" const char* __asan_default_options()
{
    return "allocator_may_return_null=1";
}
extern "C" const char* __tsan_default_options()
{
    return "allocator_may_return_null=1";
}
