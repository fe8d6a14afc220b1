# libxml2 comes with both systems; the ports find what else their machine offers.
find_package(LibXml2 REQUIRED)
add_library(ombrix_xml INTERFACE)
target_link_libraries(ombrix_xml INTERFACE LibXml2::LibXml2)
