SUMMARY = "Displays, layers, touch regions and popups as one service"
DESCRIPTION = "Presents the state of a display manager, an input manager and a popup manager as the resource service /hmx."
SECTION = "graphics"
LICENSE = "Apache-2.0"
LIC_FILES_CHKSUM = "file://LICENSE;md5=3b83ef96387f14655fc854ddc3c6bd57"

DEPENDS = "libcbor tomlplusplus util-linux-libuuid"

inherit externalsrc cmake pkgconfig python3-dir systemd useradd

# The tree that this layer is part of; a distribution names its own.
EXTERNALSRC ?= "${@os.path.realpath(os.path.join(d.getVar('THISDIR'), '../../../..'))}"
EXTERNALSRC_BUILD = "${WORKDIR}/build"

# Without "tools" there is the bridge alone. "page" is the gateway's page: `make inspector` has to build it in the tree beforehand,
# because nothing is fetched while a recipe compiles.
PACKAGECONFIG ??= "tools"
PACKAGECONFIG[tools] = "-DHMX_BUILD_TOOLS=ON -DHMX_BUILD_SHARED=ON,-DHMX_BUILD_TOOLS=OFF,cli11 libmicrohttpd nlohmann-json"
PACKAGECONFIG[page] = ""

EXTRA_OECMAKE = "-DCMAKE_BUILD_TYPE=Release -DHMX_BUILD_TESTS=OFF -DHMX_UNIT_DIR=${systemd_system_unitdir}"
OECMAKE_TARGET_COMPILE = "installed_files"

do_configure:prepend() {
    if ${@bb.utils.contains('PACKAGECONFIG', 'page', 'true', 'false', d)} && [ ! -e ${S}/inspector/dist/index.html ]; then
        bbfatal "inspector/dist is missing: run 'make inspector' in ${S}"
    fi
}

do_install:append() {
    if ${@bb.utils.contains('PACKAGECONFIG', 'tools', 'true', 'false', d)}; then
        install -d ${D}${PYTHON_SITEPACKAGES_DIR}
        install -m 0644 ${S}/examples/python/hmx.py ${D}${PYTHON_SITEPACKAGES_DIR}
        install -d ${D}${sysconfdir}/kelo/policy.d
        install -m 0644 ${S}/packaging/policy.d/20-hmxgateway.toml ${D}${sysconfdir}/kelo/policy.d
    fi
}

USERADD_PACKAGES = "${PN} hmxgateway"
GROUPADD_PARAM:${PN} = "--system hmx"
USERADD_PARAM:${PN} = "--system --no-create-home --home-dir / --shell /sbin/nologin --gid hmx hmx"
GROUPADD_PARAM:hmxgateway = "--system hmxgateway"
USERADD_PARAM:hmxgateway = "--system --no-create-home --home-dir / --shell /sbin/nologin --gid hmxgateway hmxgateway"

SYSTEMD_PACKAGES = "${PN} hmxgateway"
SYSTEMD_SERVICE:${PN} = "hmxtolubridge.service hmx.target"
SYSTEMD_SERVICE:hmxgateway = "hmxgateway.service"
# Who wants HTTP says so.
SYSTEMD_AUTO_ENABLE:hmxgateway = "disable"

PACKAGE_BEFORE_PN = "hmxctl hmxsim hmxgateway python3-hmx libhmx"

FILES:${PN} += "${nonarch_libdir}/sysusers.d/hmxtolubridge.conf ${nonarch_libdir}/tmpfiles.d"
FILES:hmxctl = "${bindir}/hmxctl ${datadir}/bash-completion ${datadir}/zsh ${datadir}/fish"
FILES:hmxsim = "${bindir}/hmxsim ${datadir}/hmxtolubridge/worlds ${datadir}/hmxtolubridge/recordings"
FILES:hmxgateway = "${bindir}/hmxgateway ${datadir}/hmxtolubridge/inspector ${nonarch_libdir}/sysusers.d/hmxgateway.conf ${sysconfdir}/kelo"
CONFFILES:hmxgateway = "${sysconfdir}/kelo/policy.d/20-hmxgateway.toml"
FILES:python3-hmx = "${PYTHON_SITEPACKAGES_DIR}/hmx.py"
FILES:libhmx = "${libdir}/libhmx.so.*"

RDEPENDS:hmxgateway = "${PN}"
RDEPENDS:python3-hmx = "python3-core python3-json python3-netclient"
