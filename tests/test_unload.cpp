// A program that loads the library and lets go of it again while one of its threads still has a context.
#include <dlfcn.h>
#include <gtest/gtest.h>

#include <future>
#include <thread>

TEST(Unload, ThreadThatLoggedEndsAfterTheLibraryWasClosed)
{
    for (int i = 0; i < 3; ++i) {
        void* const pLibrary = dlopen(ZEBU_LIBRARY, RTLD_NOW | RTLD_LOCAL);
        ASSERT_NE(pLibrary, nullptr) << dlerror();
        const auto put = reinterpret_cast<int (*)(int, const char*)>(dlsym(pLibrary, "ZEBU2_PutLine"));
        ASSERT_NE(put, nullptr);
        std::promise<void> logged, closed;
        std::thread thread([&] {
            EXPECT_EQ(put(0, "not initialised, but the thread has a context now"), -1);
            logged.set_value();
            closed.get_future().wait();
        });
        logged.get_future().wait();
        EXPECT_EQ(dlclose(pLibrary), 0);
        closed.set_value();
        thread.join();
    }
}
