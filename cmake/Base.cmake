# What everything above the support layer throws and logs with. These files lie beside their neighbours in io and
# cvtp/internal, but include nothing of them.
cvtp_add_layer(cvtp_base
    io/Exceptions.cpp
    cvtp/internal/Logging.cpp
    cvtp/internal/RecursiveMutex.cpp
)
