#pragma once

// Stands in front of the functions of OpenGL that the library calls while it draws, so that the time inside
// of them can be taken out. To be included by one source of a program, which exports these names, and so has
// them found before those of the driver's library; those that GLEW points to are exchanged by
// `installTimedGL`. What is missing here counts as time of the library.

#include <chrono>
#include <cstdint>

#include <GL/glew.h>
#include <dlfcn.h>

/// What was spent inside of OpenGL since the program began.
struct TimedGL {
    using Clock = std::chrono::steady_clock;

    static inline double seconds = 0.0, uploadSeconds = 0.0;
    static inline std::uint64_t calls = 0, drawCalls = 0, uploadBytes = 0;

    TimedGL() = default;
    ~TimedGL() {
        seconds += std::chrono::duration<double>(Clock::now() - begin_).count();
        ++calls;
    }
    TimedGL(const TimedGL &) = delete;
    TimedGL & operator=(const TimedGL &) = delete;

private:
    const Clock::time_point begin_ = Clock::now();
};

struct TimedDrawCall : TimedGL {
    TimedDrawCall() { ++drawCalls; }
};

/// Of a texture or a buffer.
class TimedUpload : public TimedGL {
public:
    explicit TimedUpload(std::uint64_t bytes) { uploadBytes += bytes; }
    ~TimedUpload() { uploadSeconds += std::chrono::duration<double>(Clock::now() - begin_).count(); }

private:
    const Clock::time_point begin_ = Clock::now();
};

#define ZMT_REAL(name) static const auto real = reinterpret_cast<decltype(&name)>(dlsym(RTLD_NEXT, #name))
#define ZMT_TIMED(name, parameters, arguments)                                                               \
    extern "C" void name parameters {                                                                        \
        ZMT_REAL(name);                                                                                      \
        const TimedGL timed;                                                                                 \
        real arguments;                                                                                      \
    }
#define ZMT_TIMED_0(name) ZMT_TIMED(name, (), ())
#define ZMT_TIMED_1(name, A) ZMT_TIMED(name, (A a), (a))
#define ZMT_TIMED_2(name, A, B) ZMT_TIMED(name, (A a, B b), (a, b))
#define ZMT_TIMED_3(name, A, B, C) ZMT_TIMED(name, (A a, B b, C c), (a, b, c))
#define ZMT_TIMED_4(name, A, B, C, D) ZMT_TIMED(name, (A a, B b, C c, D d), (a, b, c, d))

ZMT_TIMED_2(glAlphaFunc, GLenum, GLclampf)
ZMT_TIMED_2(glBindTexture, GLenum, GLuint)
ZMT_TIMED_2(glBlendFunc, GLenum, GLenum)
ZMT_TIMED_1(glClear, GLbitfield)
ZMT_TIMED_4(glClearColor, GLclampf, GLclampf, GLclampf, GLclampf)
ZMT_TIMED_1(glClearDepth, GLclampd)
ZMT_TIMED_1(glClearStencil, GLint)
ZMT_TIMED_1(glColor4fv, const GLfloat *)
ZMT_TIMED_4(glColorMask, GLboolean, GLboolean, GLboolean, GLboolean)
ZMT_TIMED_2(glColorMaterial, GLenum, GLenum)
ZMT_TIMED_4(glColorPointer, GLint, GLenum, GLsizei, const void *)
ZMT_TIMED_1(glCullFace, GLenum)
ZMT_TIMED_2(glDeleteTextures, GLsizei, const GLuint *)
ZMT_TIMED_1(glDepthFunc, GLenum)
ZMT_TIMED_1(glDepthMask, GLboolean)
ZMT_TIMED_2(glDepthRange, GLclampd, GLclampd)
ZMT_TIMED_1(glDisable, GLenum)
ZMT_TIMED_1(glDisableClientState, GLenum)
ZMT_TIMED_1(glDrawBuffer, GLenum)
ZMT_TIMED_1(glEnable, GLenum)
ZMT_TIMED_1(glEnableClientState, GLenum)
ZMT_TIMED_0(glFinish)
ZMT_TIMED_0(glFlush)
ZMT_TIMED_1(glFrontFace, GLenum)
ZMT_TIMED_2(glGenTextures, GLsizei, GLuint *)
ZMT_TIMED_2(glGetBooleanv, GLenum, GLboolean *)
ZMT_TIMED_2(glGetFloatv, GLenum, GLfloat *)
ZMT_TIMED_2(glGetIntegerv, GLenum, GLint *)
ZMT_TIMED_3(glGetMaterialfv, GLenum, GLenum, GLfloat *)
ZMT_TIMED_2(glLightModelfv, GLenum, const GLfloat *)
ZMT_TIMED_2(glLightModeli, GLenum, GLint)
ZMT_TIMED_3(glLightfv, GLenum, GLenum, const GLfloat *)
ZMT_TIMED_0(glLoadIdentity)
ZMT_TIMED_1(glLoadMatrixd, const GLdouble *)
ZMT_TIMED_3(glMaterialf, GLenum, GLenum, GLfloat)
ZMT_TIMED_3(glMaterialfv, GLenum, GLenum, const GLfloat *)
ZMT_TIMED_1(glMatrixMode, GLenum)
ZMT_TIMED_3(glNormalPointer, GLenum, GLsizei, const void *)
ZMT_TIMED_2(glPixelStorei, GLenum, GLint)
ZMT_TIMED_2(glPolygonMode, GLenum, GLenum)
ZMT_TIMED_2(glPolygonOffset, GLfloat, GLfloat)
ZMT_TIMED_0(glPopAttrib)
ZMT_TIMED_0(glPopClientAttrib)
ZMT_TIMED_0(glPopMatrix)
ZMT_TIMED_1(glPushAttrib, GLbitfield)
ZMT_TIMED_1(glPushClientAttrib, GLbitfield)
ZMT_TIMED_0(glPushMatrix)
ZMT_TIMED_1(glReadBuffer, GLenum)
ZMT_TIMED_3(glStencilFunc, GLenum, GLint, GLuint)
ZMT_TIMED_1(glStencilMask, GLuint)
ZMT_TIMED_3(glStencilOp, GLenum, GLenum, GLenum)
ZMT_TIMED_4(glTexCoordPointer, GLint, GLenum, GLsizei, const void *)
ZMT_TIMED_3(glTexEnvf, GLenum, GLenum, GLfloat)
ZMT_TIMED_3(glTexEnvfv, GLenum, GLenum, const GLfloat *)
ZMT_TIMED_3(glTexEnvi, GLenum, GLenum, GLint)
ZMT_TIMED_3(glTexParameterf, GLenum, GLenum, GLfloat)
ZMT_TIMED_3(glTexParameterfv, GLenum, GLenum, const GLfloat *)
ZMT_TIMED_3(glTexParameteri, GLenum, GLenum, GLint)
ZMT_TIMED_4(glVertexPointer, GLint, GLenum, GLsizei, const void *)
ZMT_TIMED_4(glViewport, GLint, GLint, GLsizei, GLsizei)

extern "C" GLboolean glIsEnabled(GLenum name) {
    ZMT_REAL(glIsEnabled);
    const TimedGL timed;
    return real(name);
}
extern "C" void glDrawArrays(GLenum mode, GLint first, GLsizei count) {
    ZMT_REAL(glDrawArrays);
    const TimedDrawCall timed;
    real(mode, first, count);
}
extern "C" void glDrawElements(GLenum mode, GLsizei count, GLenum type, const void * indices) {
    ZMT_REAL(glDrawElements);
    const TimedDrawCall timed;
    real(mode, count, type, indices);
}
extern "C" void glTexImage2D(GLenum target, GLint level, GLint internalFormat, GLsizei width, GLsizei height,
                             GLint border, GLenum format, GLenum type, const void * pixels) {
    ZMT_REAL(glTexImage2D);
    const TimedUpload timed(4ULL * unsigned(width) * unsigned(height));
    real(target, level, internalFormat, width, height, border, format, type, pixels);
}

/// In front of a function that `pointer` of GLEW leads to.
template <auto & pointer, class Timed = TimedGL, class Function = std::remove_reference_t<decltype(pointer)>>
struct TimedPointer;
template <auto & pointer, class Timed, class Result, class... Arguments>
struct TimedPointer<pointer, Timed, Result (*)(Arguments...)> {
    static inline Result (*real)(Arguments...) = nullptr;
    static Result call(Arguments... arguments) {
        const Timed timed;
        return real(arguments...);
    }
    static void install() {
        if (!pointer || pointer == &call) return;
        real = pointer;
        pointer = &call;
    }
};

inline PFNGLCOMPRESSEDTEXIMAGE2DPROC s_realCompressedTexImage2D = nullptr;
inline PFNGLBUFFERDATAPROC s_realBufferData = nullptr;

/// To be called once, while the context is current in which GLEW has found its functions.
inline void installTimedGL() {
    TimedPointer<__glewActiveTexture>::install();
    TimedPointer<__glewBeginQuery>::install();
    TimedPointer<__glewBindBuffer>::install();
    TimedPointer<__glewBindFramebufferEXT>::install();
    TimedPointer<__glewBindRenderbufferEXT>::install();
    TimedPointer<__glewBlendColor>::install();
    TimedPointer<__glewClientActiveTexture>::install();
    TimedPointer<__glewDeleteBuffers>::install();
    TimedPointer<__glewDeleteQueries>::install();
    TimedPointer<__glewEndQuery>::install();
    TimedPointer<__glewGenBuffers>::install();
    TimedPointer<__glewGenQueries>::install();
    TimedPointer<__glewGenerateMipmap>::install();
    TimedPointer<__glewGetBufferParameteri64v>::install();
    TimedPointer<__glewGetQueryObjectuiv>::install();
    TimedPointer<__glewGetQueryiv>::install();
    TimedPointer<__glewMapBuffer>::install();
    TimedPointer<__glewUnmapBuffer>::install();
    TimedPointer<__glewUseProgram>::install();
    TimedPointer<__glewMultiDrawArrays, TimedDrawCall>::install();
    TimedPointer<__glewMultiDrawElements, TimedDrawCall>::install();
    s_realCompressedTexImage2D = __glewCompressedTexImage2D;
    __glewCompressedTexImage2D = [](GLenum target, GLint level, GLenum format, GLsizei width, GLsizei height,
                                    GLint border, GLsizei size, const void * data) {
        const TimedUpload timed(static_cast<std::uint64_t>(size));
        s_realCompressedTexImage2D(target, level, format, width, height, border, size, data);
    };
    s_realBufferData = __glewBufferData;
    __glewBufferData = [](GLenum target, GLsizeiptr size, const void * data, GLenum usage) {
        const TimedUpload timed(static_cast<std::uint64_t>(size));
        s_realBufferData(target, size, data, usage);
    };
}
